#include "service/http/UpdateFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "base/FileIO.h"

namespace nulo::service {
namespace {

constexpr std::uintmax_t largestVersionInfo = 1024 * 1024;
constexpr std::string_view archivePrefix = "/updates/";

bool isPlainName(std::string_view name) {
    const auto isPlain = [](unsigned char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
               c == '.' || c == '-' || c == '_' || c == '+' || c == '~';
    };
    return !name.empty() && name.front() != '.' && std::ranges::all_of(name, isPlain);
}

}  // namespace

std::optional<std::string> UpdateFolder::versionInfo() const {
    if (m_folder.empty())
        return std::nullopt;
    return readFile(m_folder / "version.json", largestVersionInfo);
}

bool UpdateFolder::serves(std::string_view path) {
    return path == "/update.sh" ||
           (path.starts_with(archivePrefix) && isPlainName(path.substr(archivePrefix.size())));
}

std::optional<Answer> UpdateFolder::file(std::string_view path) const {
    if (m_folder.empty() || !serves(path))
        return std::nullopt;
    // Opening a FIFO would wait for its writer.
    const int descriptor =
        ::open((m_folder / path.substr(1)).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0)
        return std::nullopt;
    const std::shared_ptr<const int> owned(new int(descriptor), [](const int* one) {
        ::close(*one);
        delete one;
    });
    struct stat facts {};
    if (fstat(descriptor, &facts) != 0 || !S_ISREG(facts.st_mode))
        return std::nullopt;
    const bool isScript = path == "/update.sh";
    Answer answer(200, isScript ? "text/x-shellscript" : "application/octet-stream", "");
    answer.file = Answer::File{owned, static_cast<std::uint64_t>(facts.st_size)};
    return answer;
}

}  // namespace nulo::service
