#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "base/Result.h"

namespace nulo {

/// The bytes of a regular file of at most `limit` bytes; nothing otherwise.
std::optional<std::string> readFile(const std::filesystem::path& path, std::uintmax_t limit);

/// Replaces the file's content in one step: a new file beside it is renamed over it. The file that
/// a symbolic link points to is the one replaced; its mode is kept. A failure changes nothing; its
/// text names the file and the system's reason.
Outcome replaceFile(const std::filesystem::path& path, std::string_view bytes);

}  // namespace nulo
