#include "base/PrivateFolder.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "rig/process/TemporaryFolder.h"

namespace nulo {
namespace {

using testing::HasSubstr;

std::string refusal(const std::filesystem::path& folder) {
    const Outcome outcome = makePrivateFolder(folder);
    return outcome ? "" : outcome.error().description;
}

unsigned modeOf(const std::filesystem::path& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST(PrivateFolder, closesTheFolderToOtherUsers) {
    const TemporaryFolder temporary;
    EXPECT_TRUE(makePrivateFolder(temporary / "a/b"));
    EXPECT_EQ(modeOf(temporary / "a/b"), 0700u);
    chmod((temporary / "a").c_str(), 0777);
    EXPECT_TRUE(makePrivateFolder(temporary / "a"));
    EXPECT_EQ(modeOf(temporary / "a"), 0700u);
}

TEST(PrivateFolder, refusesWhatAnotherUserCouldHavePutThere) {
    const TemporaryFolder temporary;
    std::filesystem::create_directory(temporary / "target");
    std::filesystem::create_directory_symlink(temporary / "target", temporary / "link");
    EXPECT_THAT(refusal(temporary / "link"), HasSubstr("is a symbolic link"));
    std::ofstream(temporary / "file");
    EXPECT_THAT(refusal(temporary / "file"), HasSubstr("is not a folder"));

    // Another user's: root makes one; for anybody else the root folder is one.
    std::filesystem::path foreign = "/";
    if (geteuid() == 0) {
        foreign = temporary / "foreign";
        std::filesystem::create_directory(foreign);
        ASSERT_EQ(chown(foreign.c_str(), 65534, 65534), 0);
    }
    EXPECT_THAT(refusal(foreign), HasSubstr("belongs to another user"));
}

TEST(PrivateFolder, losesOwnOldFilesOfANameAndNothingElse) {
    const TemporaryFolder temporary;
    const std::filesystem::path folder = temporary / "takes";
    std::filesystem::create_directories(folder / "a folder.m4a");
    std::ofstream(temporary / "b.m4a");
    std::filesystem::create_symlink(temporary / "b.m4a", folder / "a link.m4a");
    for (const char* name : {"a 1.m4a", "a 2.m4a.part", "b 3.m4a", "a foreign.m4a"})
        std::ofstream(folder / name);
    const bool isRoot =
        geteuid() == 0 && chown((folder / "a foreign.m4a").c_str(), 65534, 65534) == 0;
    std::filesystem::create_directory_symlink(folder, temporary / "link");
    using Clock = std::chrono::system_clock;
    removeOwnFiles(folder, "a", ".m4a", Clock::now() - std::chrono::hours(1));
    removeOwnFiles(temporary / "link", "a", ".m4a", Clock::time_point::max());
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 6);
    removeOwnFiles(folder, "a", ".m4a", Clock::time_point::max());
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), isRoot ? 5 : 4);
    EXPECT_FALSE(std::filesystem::exists(folder / "a 1.m4a"));
}

}  // namespace
}  // namespace nulo
