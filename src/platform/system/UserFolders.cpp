#include "platform/system/UserFolders.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "base/Environment.h"

namespace nulo {
namespace {

std::string homeFromPasswordDatabase() {
    std::vector<char> buffer(16 * 1024);
    passwd entry{};
    passwd* found = nullptr;
    getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found);
    return found && found->pw_dir ? found->pw_dir : "/";
}

/// The session's folder is another user's where one became this user without logging in.
bool isOwnFolder(const std::filesystem::path& folder) {
    struct stat status {};
    return folder.is_absolute() && stat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == geteuid();
}

std::filesystem::path recordingsFolder(const std::filesystem::path& temporary) {
    if (!temporary.empty())
        return temporary / "nulo";
    const std::filesystem::path runtime = environmentVariable("XDG_RUNTIME_DIR");
    if (isOwnFolder(runtime))
        return runtime / "nulo";
    return "/tmp/nulo-" + std::to_string(geteuid());
}

}  // namespace

UserFolders userFolders() {
    const std::string homeVariable = environmentVariable("HOME");
    const std::string temporary = environmentVariable("TMPDIR");
    const std::filesystem::path home =
        homeVariable.empty() ? homeFromPasswordDatabase() : homeVariable;
    const std::filesystem::path config = environmentVariable("XDG_CONFIG_HOME");
    const std::filesystem::path state = environmentVariable("XDG_STATE_HOME");
    return {.home = home,
            .temporary = temporary.empty() ? "/tmp" : temporary,
            .recordings = recordingsFolder(temporary),
            .config = config.is_absolute() ? config : home / ".config",
            .state = (state.is_absolute() ? state : home / ".local" / "state") / "nulo"};
}

}  // namespace nulo
