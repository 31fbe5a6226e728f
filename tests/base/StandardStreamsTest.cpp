#include "base/StandardStreams.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "base/Print.h"

namespace nulo {
namespace {

// What is printed would go into the next file or socket that the program opens, or end it.
TEST(StandardStreams, neverAreAnythingElseAndNobodyNeedsToReadThem) {
    const auto program = [] {
        int ends[2];
        if (pipe(ends) != 0 || dup2(ends[1], STDERR_FILENO) < 0)
            _exit(1);
        for (const int descriptor : {ends[0], ends[1], STDIN_FILENO, STDOUT_FILENO})
            close(descriptor);
        secureStandardStreams();
        [[maybe_unused]] const auto toNobody = write(STDERR_FILENO, "x", 1);
        printLine("x");
        _exit(open("/dev/null", O_RDONLY) > STDERR_FILENO ? 0 : 2);
    };
    EXPECT_EXIT(program(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace nulo
