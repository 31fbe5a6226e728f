#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace nulo {

/// What the service says about the latest published version.
struct VersionInfo {
    std::string version;  // dotted
    std::int64_t build = 0;
    std::string downloadUrl;  // absolute, of the zip archive; not checked here
    std::string releaseNotes;
    std::string minVersion;
};

constexpr std::size_t largestVersionInfo = 10 * 1024 * 1024;  // bytes

/// Nothing unless the body is a JSON object with all five keys, each of its type; other keys are
/// ignored. The texts are valid UTF-8.
std::optional<VersionInfo> parsedVersionInfo(std::string_view body);

}  // namespace nulo
