#include "platform/system/UserFolders.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace nulo {
namespace {

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::string homeFromPasswordDatabase() {
    std::vector<char> buffer(16 * 1024);
    passwd entry{};
    passwd* found = nullptr;
    getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found);
    return found && found->pw_dir ? found->pw_dir : "/";
}

}  // namespace

UserFolders userFolders() {
    const std::string homeVariable = variable("HOME");
    const std::string temporary = variable("TMPDIR");
    const std::filesystem::path home =
        homeVariable.empty() ? homeFromPasswordDatabase() : homeVariable;
    const std::filesystem::path config = variable("XDG_CONFIG_HOME");
    return {home, temporary.empty() ? "/tmp" : temporary,
            config.is_absolute() ? config : home / ".config"};
}

}  // namespace nulo
