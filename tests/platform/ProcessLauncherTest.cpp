#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "base/FileIO.h"
#include "platform/Backends.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

// What the updater must be to outlive this program, to be silent, and to do what it is told.
TEST(ProcessLauncher, startsADetachedProcess) {
    const TemporaryFolder folder;
    // Printing from the script would be told by a shell's error, were its output closed.
    std::ofstream(folder / "script") << R"sh(
        echo visible; echo visible >&2
        cd "$1"; shift
        readlink /proc/$$/fd/* >descriptors
        cat >input
        read -r _ _ _ parent group session _ <"/proc/$$/stat"
        echo "$$ $parent $group $session" >ids
        grep -E '^Sig(Blk|Ign)' /proc/self/status >signals
        env >environment
        printf '%s|' "$@" >arguments
        mv arguments done)sh";
    const int leaked = open("/dev/zero", O_RDONLY);  // as a library's that does not close itself
    sigset_t set, before;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set, &before);
    const auto oldHandler = std::signal(SIGPIPE, SIG_IGN);
    const auto started =
        makeProcessLauncher()->launch({"/bin/bash", folder / "script", folder.path(), "a b", "",
                                       "$(touch x) \"quoted\" *", "é\n"});
    std::signal(SIGPIPE, oldHandler);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    ASSERT_TRUE(started) << started.error().description;
    ASSERT_TRUE(waitUntil([&] { return exists(folder / "done"); }));
    close(leaked);

    EXPECT_EQ(readFile(folder / "done", 1000), "a b||$(touch x) \"quoted\" *|é\n|");
    EXPECT_FALSE(exists(folder / "x"));
    EXPECT_EQ(readFile(folder / "input", 1000), "");
    const std::string descriptors = readFile(folder / "descriptors", 10000).value_or("");
    EXPECT_EQ(descriptors,
              "/dev/null\n/dev/null\n/dev/null\n" + (folder / "script").string() + "\n");
    int pid = 0, parent = 0, group = 0, session = 0;
    std::ifstream(folder / "ids") >> pid >> parent >> group >> session;
    EXPECT_NE(parent, getpid());
    EXPECT_NE(group, getpgrp()) << "a stop of this process's group would reach it";
    EXPECT_NE(session, getsid(0));
    EXPECT_THAT(readFile(folder / "signals", 1000).value_or(""),
                testing::MatchesRegex("SigBlk:\t0+\nSigIgn:\t0+\n"));
    const std::string environment = readFile(folder / "environment", 100000).value_or("");
    EXPECT_THAT(environment, HasSubstr("NULO_PID=" + std::to_string(getpid()) + "\n"));
    EXPECT_THAT(environment,
                HasSubstr("NULO_EXECUTABLE=" +
                          std::filesystem::read_symlink("/proc/self/exe").string() + "\n"));
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left to be collected";
}

TEST(ProcessLauncher, saysWhyAProgramDoesNotStart) {
    const TemporaryFolder folder;
    const auto launcher = makeProcessLauncher();
    const auto failure = [&](std::vector<std::string> command) {
        const auto outcome = launcher->launch(command);
        return outcome ? "started" : outcome.error().description;
    };
    EXPECT_EQ(failure({folder / "bash", "x"}),
              (folder / "bash").string() + " cannot be started: No such file or directory");
    std::ofstream(folder / "bash") << "no program";
    EXPECT_THAT(failure({folder / "bash"}), HasSubstr("cannot be started: Permission denied"));
    EXPECT_THAT(failure({"/bin/bash", std::string("a\0b", 3)}), HasSubstr("NUL"));
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

}  // namespace
}  // namespace nulo
