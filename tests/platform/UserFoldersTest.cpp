#include "platform/system/UserFolders.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "rig/process/TemporaryFolder.h"

namespace nulo {
namespace {

// A folder that two users share is the first one's: the second cannot dictate.
TEST(UserFolders, takesGoToAFolderOfTheUsersOwn) {
    const TemporaryFolder own;
    const std::filesystem::path byDefault = "/tmp/nulo-" + std::to_string(geteuid());
    struct Case {
        const char* temporary;
        const char* runtime;
        std::filesystem::path takes;
    };
    for (const Case& c : {Case{"/else/where", own.path().c_str(), "/else/where/nulo"},
                          {"", own.path().c_str(), own / "nulo"},
                          {"", "relative", byDefault},
                          {"", "/not/there", byDefault},
                          {"", "", byDefault}}) {
        setenv("TMPDIR", c.temporary, 1);
        setenv("XDG_RUNTIME_DIR", c.runtime, 1);
        EXPECT_EQ(userFolders().recordings, c.takes);
    }
    unsetenv("TMPDIR");
    unsetenv("XDG_RUNTIME_DIR");
}

}  // namespace
}  // namespace nulo
