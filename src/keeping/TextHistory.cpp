#include "keeping/TextHistory.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/FileIO.h"

namespace nulo {
namespace {

using nlohmann::ordered_json;

constexpr std::size_t longestText = 256 * 1024;
constexpr std::uintmax_t largestFile = 2 * 1024 * 1024;  // JSON writes a byte as six at most
constexpr DatedFiles::Limits limits{500, 16 * 1024 * 1024, largestFile,
                                    std::chrono::hours(30 * 24)};

}  // namespace

TextHistory::TextHistory(const std::filesystem::path& stateFolder, const Clock& clock)
    : m_files(stateFolder / "texts", {".json"}, limits, clock) {}

Outcome TextHistory::add(std::string_view text, std::string_view mode) const {
    if (text.size() > longestText)
        return Error{"the text has more than 256 kB"};
    const ordered_json entry = {{"mode", mode}, {"text", text}};
    return m_files.add({entry.dump(-1, ' ', false, ordered_json::error_handler_t::replace) + "\n"});
}

TextHistory::Contents TextHistory::read() const {
    Contents contents;
    for (const DatedFiles::Entry& entry : m_files.newestFirst()) {
        const auto bytes = readFile(entry.file, largestFile);
        std::error_code ignored;
        if (!bytes && !std::filesystem::exists(entry.file, ignored))
            continue;  // another process has removed it since
        const auto json = ordered_json::parse(bytes.value_or(""), nullptr, false);
        const bool isText = json.is_object() && json.contains("mode") && json.contains("text") &&
                            json["mode"].is_string() && json["text"].is_string();
        if (isText)
            contents.texts.push_back({entry.time, json["mode"], json["text"]});
        else
            ++contents.unreadable;
    }
    std::ranges::reverse(contents.texts);
    return contents;
}

}  // namespace nulo
