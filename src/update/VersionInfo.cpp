#include "update/VersionInfo.h"

#include <limits>
#include <nlohmann/json.hpp>

namespace nulo {
namespace {

using nlohmann::json;

bool take(const json& object, const char* key, std::string& text) {
    const auto value = object.find(key);
    if (value == object.end() || !value->is_string())
        return false;
    text = value->get<std::string>();
    return true;
}

bool take(const json& object, const char* key, std::int64_t& number) {
    const auto value = object.find(key);
    if (value == object.end() || !value->is_number_integer())
        return false;
    if (value->is_number_unsigned() &&
        value->get<std::uint64_t>() > std::uint64_t(std::numeric_limits<std::int64_t>::max()))
        return false;
    number = value->get<std::int64_t>();
    return true;
}

}  // namespace

std::optional<VersionInfo> parsedVersionInfo(std::string_view body) {
    if (body.size() > largestVersionInfo)
        return std::nullopt;
    // What is nested is of no interest, and ten million brackets would take a gigabyte to keep.
    const auto keepsTopLevel = [](int depth, json::parse_event_t, const json&) {
        return depth <= 1;
    };
    const json object = json::parse(body, keepsTopLevel, false);
    VersionInfo info;
    if (!object.is_object() || !take(object, "version", info.version) ||
        !take(object, "build", info.build) || !take(object, "downloadUrl", info.downloadUrl) ||
        !take(object, "releaseNotes", info.releaseNotes) ||
        !take(object, "minVersion", info.minVersion))
        return std::nullopt;
    return info;
}

}  // namespace nulo
