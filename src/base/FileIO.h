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

/// Replaces the file's content in one step: a new file beside it, already on the disk, is renamed
/// over it. What a symbolic link points to is the file that is replaced, or made where it is
/// missing; mode and owner are kept. A failure changes nothing; its text names the file and the
/// system's reason. Where the folder takes no new file, a writable file is overwritten: a reader
/// may then see half of it.
Outcome replaceFile(const std::filesystem::path& path, std::string_view bytes);

}  // namespace nulo
