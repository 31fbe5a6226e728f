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

// An updater that dies with this program, holds its files, speaks into its terminal, ignores
// signals, or does something else than it is told.
TEST(ProcessLauncher, startsADetachedProcessOrSaysWhyNot) {
    const TemporaryFolder folder;
    // Printing from the script would be told by a shell's error, were its output closed.
    std::ofstream(folder / "script") << R"sh(
        echo visible; echo visible >&2
        exec 3>"$1/facts"
        cd "$1"
        read -r _ _ _ parent group session _ <"/proc/$$/stat"
        echo "$((parent != NULO_PID)) $((group != $2)) $((session != $3))" >&3
        shift 3
        echo $(readlink /proc/$$/fd/{0,1,2}) $(ls /proc/$$/fd | wc -l) $(wc -c) >&3
        grep -E '^Sig(Blk|Ign)' /proc/self/status >&3
        printf '%s|' "$NULO_EXECUTABLE" "$@" >&3
        mv facts done)sh";
    const int leaked = open("/dev/zero", O_RDONLY);  // as a library's that does not close itself
    sigset_t set, before;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set, &before);
    const auto oldHandler = std::signal(SIGPIPE, SIG_IGN);
    const auto launcher = makeProcessLauncher();
    const auto failure = [&](const std::vector<std::string>& command) {
        const auto outcome = launcher->launch(command);
        return outcome ? "" : outcome.error().description;
    };
    EXPECT_EQ(failure({"/bin/bash", folder / "script", folder.path(), std::to_string(getpgrp()),
                       std::to_string(getsid(0)), "a b", "", "$(touch x) \"quoted\" *", "é\n"}),
              "");
    std::signal(SIGPIPE, oldHandler);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    EXPECT_TRUE(waitUntil([&] { return exists(folder / "done"); }));
    close(leaked);
    EXPECT_EQ(readFile(folder / "done", 10'000),
              "1 1 1\n/dev/null /dev/null /dev/null 6 0\n"
              "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n" +
                  std::filesystem::read_symlink("/proc/self/exe").string() +
                  "|a b||$(touch x) \"quoted\" *|é\n|");

    const std::string program = folder / "bash";
    EXPECT_EQ(failure({program}), program + " cannot be started: No such file or directory");
    std::ofstream(program) << "no program";
    EXPECT_EQ(failure({program}), program + " cannot be started: Permission denied");
    EXPECT_THAT(failure({"/bin/bash", std::string("a\0b", 3)}), testing::HasSubstr("NUL"));
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left to be collected";
}

}  // namespace
}  // namespace nulo
