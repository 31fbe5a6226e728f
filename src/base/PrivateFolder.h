#pragma once

#include <chrono>
#include <filesystem>
#include <string_view>

#include "base/Result.h"

namespace nulo {

/// Makes sure of a folder that only this user can look into: creates it (and its parents) when it
/// is missing, and takes other users' access to it away. Fails when the path is a symbolic link, no
/// folder, or another user's folder: that user could read or swap what is put there. Any thread.
Outcome makePrivateFolder(const std::filesystem::path& folder);

/// Deletes this user's regular files in the folder whose names begin and end so and that were last
/// written before `moment`. Follows no symbolic link, not even in place of the folder; failures are
/// ignored.
void removeOwnFiles(const std::filesystem::path& folder, std::string_view prefix,
                    std::string_view suffix, std::chrono::system_clock::time_point moment);

}  // namespace nulo
