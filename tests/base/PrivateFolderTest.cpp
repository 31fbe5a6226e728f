#include "base/PrivateFolder.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <fstream>

#include "rig/process/TemporaryFolder.h"

namespace nulo {
namespace {

namespace fs = std::filesystem;

TEST(PrivateFolder, isClosedToOthersOrNotTakenFromThem) {
    const TemporaryFolder temporary;
    for (const char* name : {"a/b", "a"}) {
        EXPECT_TRUE(makePrivateFolder(temporary / name));
        EXPECT_EQ(fs::status(temporary / name).permissions(), fs::perms(0700)) << name;
        fs::permissions(temporary / "a", fs::perms(0777));
    }
    fs::create_directory_symlink(temporary / "a", temporary / "link");
    std::ofstream(temporary / "file");
    // Another user's: root makes one; for anybody else the root folder is one.
    const bool isRoot = geteuid() == 0;
    const fs::path foreign = isRoot ? temporary / "a/b" : "/";
    ASSERT_TRUE(!isRoot || chown(foreign.c_str(), 65534, 65534) == 0);
    for (const auto& [folder, fault] : {std::pair{temporary / "link", "is a symbolic link"},
                                        {temporary / "file", "is not a folder"},
                                        {foreign, "belongs to another user"}})
        EXPECT_THAT(makePrivateFolder(folder).error().description, testing::HasSubstr(fault));
}

TEST(PrivateFolder, losesOwnOldFilesOfANameAndNothingElse) {
    const TemporaryFolder temporary;
    const fs::path folder = temporary / "takes";
    fs::create_directories(folder / "a folder.m4a");
    std::ofstream(temporary / "b.m4a");
    fs::create_symlink(temporary / "b.m4a", folder / "a link.m4a");
    for (const char* name : {"a 1.m4a", "a 2.m4a.part", "b 3.m4a", "a foreign.m4a"})
        std::ofstream(folder / name);
    const bool isRoot =
        geteuid() == 0 && chown((folder / "a foreign.m4a").c_str(), 65534, 65534) == 0;
    fs::create_directory_symlink(folder, temporary / "link");
    using Clock = std::chrono::system_clock;
    removeOwnFiles(folder, "a", ".m4a", Clock::now() - std::chrono::hours(1));
    removeOwnFiles(temporary / "link", "a", ".m4a", Clock::time_point::max());
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 6);
    removeOwnFiles(folder, "a", ".m4a", Clock::time_point::max());
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), isRoot ? 5 : 4);
    EXPECT_FALSE(fs::exists(folder / "a 1.m4a"));
}

}  // namespace
}  // namespace nulo
