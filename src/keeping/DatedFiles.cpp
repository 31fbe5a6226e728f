#include "keeping/DatedFiles.h"

#include <algorithm>
#include <map>
#include <system_error>

#include "base/FileIO.h"
#include "base/PrivateFolder.h"
#include "base/Uuid.h"

namespace nulo {
namespace fs = std::filesystem;
namespace {

// Milliseconds since 1970 have as many digits from 2001 to 2286, so that names sort by time.
constexpr std::size_t stemDigits = 13;

/// The time, and what two processes will not share: neither may write over the other's entry.
std::string stemOf(Clock::WallTime time) {
    const auto ms = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch()).count();
    std::string digits = std::to_string(std::max<long long>(ms, 0));
    digits.insert(0, stemDigits - std::min(stemDigits, digits.size()), '0');
    return digits + "-" + randomUuid();
}

bool isStem(std::string_view name) {
    return name.find_first_not_of("0123456789") == stemDigits && name[stemDigits] == '-';
}

Clock::WallTime timeOf(const std::string& stem) {
    return Clock::WallTime(std::chrono::milliseconds(std::stoll(stem.substr(0, stemDigits))));
}

}  // namespace

Outcome DatedFiles::add(const std::vector<std::string_view>& contents) const {
    for (const fs::path& folder : {m_folder.parent_path(), m_folder})
        if (Outcome made = makePrivateFolder(folder); !made)
            return made;
    const Stem stem = stemOf(m_clock.wallTime());
    // The first file comes last: with it the entry is there, and whole.
    for (std::size_t i = m_suffixes.size(); i-- > 0;) {
        if (Outcome written = replaceFile(pathOf(stem, m_suffixes[i]), contents[i]); !written) {
            removeStem(stem);
            return written;
        }
    }
    dropOld();
    return Success{};
}

std::vector<DatedFiles::Entry> DatedFiles::newestFirst() const {
    std::vector<Entry> entries;
    for (const Stem& stem : stems([](const Stem&) {}))
        entries.push_back({timeOf(stem), pathOf(stem, m_suffixes.front())});
    return entries;
}

void DatedFiles::remove(const Entry& entry) const {
    removeStem(entry.file.stem());
}

void DatedFiles::dropOld() const {
    stems([this](const Stem& stem) { removeStem(stem); });
    removeWrittenBefore(m_clock.wallTime() - m_limits.age);
}

Outcome DatedFiles::clear() const {
    removeWrittenBefore(Clock::WallTime::max());
    std::error_code error;
    for (fs::directory_iterator file(m_folder, error), end; !error && file != end;
         file.increment(error))
        if (std::ranges::find(m_suffixes, file->path().extension().string()) != m_suffixes.end())
            return Error{file->path().string() + " cannot be removed"};
    if (error && error != std::errc::no_such_file_or_directory)
        return Error{m_folder.string() + ": " + error.message()};
    return Success{};
}

std::vector<DatedFiles::Stem> DatedFiles::stems(
    const std::function<void(const Stem&)>& onSurplus) const {
    std::map<Stem, std::uintmax_t, std::greater<>> newest;
    const Clock::WallTime oldest = m_clock.wallTime() - m_limits.age;
    std::error_code error;
    for (fs::directory_iterator file(m_folder, error), end; !error && file != end;
         file.increment(error)) {
        const Stem stem = file->path().stem();
        std::error_code ignored;
        if (file->path().extension() != m_suffixes.front() || !isStem(stem) ||
            !fs::is_regular_file(file->symlink_status(ignored)))
            continue;
        const std::uintmax_t bytes = file->file_size(ignored);
        if (ignored || bytes > m_limits.largest || timeOf(stem) < oldest) {
            onSurplus(stem);
            continue;
        }
        newest.emplace(stem, bytes);
        if (newest.size() > m_limits.entries) {
            const auto last = std::prev(newest.end());
            onSurplus(last->first);
            newest.erase(last);
        }
    }
    std::vector<Stem> found;
    std::uintmax_t bytes = 0;
    for (const auto& [stem, size] : newest) {
        bytes += size;
        if (bytes <= m_limits.bytes)
            found.push_back(stem);
        else
            onSurplus(stem);
    }
    return found;
}

void DatedFiles::removeStem(const Stem& stem) const {
    std::error_code ignored;
    for (const std::string& suffix : m_suffixes)
        fs::remove(pathOf(stem, suffix), ignored);
}

void DatedFiles::removeWrittenBefore(Clock::WallTime moment) const {
    for (const std::string& suffix : m_suffixes)
        removeOwnFiles(m_folder, "", suffix, moment);
    removeOwnFiles(m_folder, ".", ".tmp", moment);
}

}  // namespace nulo
