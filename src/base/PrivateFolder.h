#pragma once

#include <filesystem>

#include "base/Result.h"

namespace nulo {

/// Makes sure of a folder that only this user can look into: creates it (and its parents) when it
/// is missing, takes other users' access to an own one away. Fails when it is a symbolic link, no
/// folder, or somebody else's: in a folder that all users share, its owner could read or swap what
/// is put there. Any thread.
Outcome makePrivateFolder(const std::filesystem::path& folder);

}  // namespace nulo
