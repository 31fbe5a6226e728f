#pragma once

#include <filesystem>

namespace nulo {

struct UserFolders {
    std::filesystem::path home;       // $HOME, else the password database's
    std::filesystem::path temporary;  // $TMPDIR, else /tmp
    /// $TMPDIR/nulo, else nulo in $XDG_RUNTIME_DIR when that is this user's, else /tmp/nulo-UID:
    /// without $TMPDIR no two users ever get the same. It need not be there.
    std::filesystem::path recordings;
    std::filesystem::path config;  // $XDG_CONFIG_HOME when absolute, else ~/.config
    std::filesystem::path state;   // nulo in $XDG_STATE_HOME when absolute, else ~/.local/state
};

/// The folders that the environment names now; an empty variable counts as missing. Any thread.
UserFolders userFolders();

}  // namespace nulo
