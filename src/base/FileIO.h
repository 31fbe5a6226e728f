#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "base/Result.h"

namespace nulo {

/// The bytes of a regular file of at most `limit` bytes; nothing otherwise. Never waits for another
/// program, as opening a FIFO would.
std::optional<std::string> readFile(const std::filesystem::path& path, std::uintmax_t limit);

/// What users other than this one and root may do with a file.
struct ForeignAccess {
    bool mayRead = false;
    bool mayWrite = false;  // also when it belongs to one of them
};

/// What other users may do with the file; nothing when it is missing.
std::optional<ForeignAccess> foreignAccess(const std::filesystem::path& path);

/// Replaces the file's content in one step: a new file beside it, already on the disk, is renamed
/// over it. A symbolic link stays: the file that it points to is replaced, or made where it is
/// missing. Mode and owner are kept; a new file is its owner's only. A failure changes nothing; its
/// text names the file and the system's reason. Where the folder takes no new file, a writable file
/// is overwritten: a reader may then see half of it.
Outcome replaceFile(const std::filesystem::path& path, std::string_view bytes);

}  // namespace nulo
