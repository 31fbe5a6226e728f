#include "keeping/KeptTakes.h"

#include <array>
#include <nlohmann/json.hpp>

#include "base/FileIO.h"

namespace nulo {
namespace {

using nlohmann::ordered_json;

constexpr DatedFiles::Limits limits{20, 100'000'000, 100'000'000, std::chrono::hours(7 * 24)};
constexpr std::uintmax_t largestRoute = 1024 * 1024;
constexpr std::array kinds{"raw", "combined", "two-stage"};  // in the order of TakeRoute::Kind

std::string encode(const TakeRoute& route) {
    ordered_json json = {{"route", kinds.at(static_cast<std::size_t>(route.kind))},
                         {"provider", route.provider},
                         {"mode", route.mode},
                         {"cleanupModel", route.cleanupModel}};
    if (route.vocabulary)
        json["vocabulary"] = *route.vocabulary;
    if (route.prompt)
        json["prompt"] = *route.prompt;
    return json.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

std::optional<std::string> text(const ordered_json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_string())
        return std::nullopt;
    return found->get<std::string>();
}

TakeRoute decode(const std::string& bytes) {
    const auto json = ordered_json::parse(bytes, nullptr, false);
    const auto kind = json.is_object() ? text(json, "route") : std::nullopt;
    const auto found = std::find(kinds.begin(), kinds.end(), kind);
    if (found == kinds.end())
        return {};
    return {.kind = static_cast<TakeRoute::Kind>(found - kinds.begin()),
            .provider = text(json, "provider").value_or("openai"),
            .vocabulary = text(json, "vocabulary"),
            .mode = text(json, "mode").value_or(""),
            .prompt = text(json, "prompt"),
            .cleanupModel = text(json, "cleanupModel").value_or("")};
}

}  // namespace

KeptTakes::KeptTakes(const std::filesystem::path& stateFolder, const Clock& clock)
    : m_files(stateFolder / "takes", {".m4a", ".json"}, limits, clock) {}

Outcome KeptTakes::keep(const std::filesystem::path& file, const TakeRoute& route) const {
    const auto sound = readFile(file, limits.bytes);
    if (!sound)
        return Error{file.string() + " cannot be read, or has more than 100 MB"};
    const std::string encoded = encode(route);
    if (encoded.size() > largestRoute)
        return Error{"its mode has more than 1 MB"};
    return m_files.add({*sound, encoded});
}

std::optional<KeptTakes::Take> KeptTakes::newest() const {
    const auto entries = m_files.newestFirst();
    if (entries.empty())
        return std::nullopt;
    std::filesystem::path route = entries.front().file;
    route.replace_extension(".json");
    return Take{entries.front(), decode(readFile(route, largestRoute).value_or(""))};
}

}  // namespace nulo
