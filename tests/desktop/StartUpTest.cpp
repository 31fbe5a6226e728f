// Starting where there is no desktop to start on.

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo {
namespace {

std::pair<std::optional<int>, std::string> startWith(std::vector<std::string> environment) {
    const TemporaryFolder home;
    environment.push_back("HOME=" + home.path().string());
    ChildProcess program({NULO_BINARY_FOLDER "/nulo"}, {std::move(environment), home / "output"});
    const auto status = program.wait(std::chrono::seconds(20));
    std::ostringstream output;
    output << std::ifstream(home / "output").rdbuf();
    return {status, output.str()};
}

TEST(StartUp, saysThatThereIsNoDesktop) {
    const auto [status, output] = startWith({"DISPLAY", "WAYLAND_DISPLAY"});
    EXPECT_EQ(status, 1);
    EXPECT_EQ(output, "Nulo needs a desktop: neither $DISPLAY nor $WAYLAND_DISPLAY is set.\n");
}

TEST(StartUp, saysThatTheDisplayDoesNotAnswer) {
    const auto [status, output] = startWith({"DISPLAY=:9999", "WAYLAND_DISPLAY"});
    EXPECT_EQ(status, 1);
    EXPECT_EQ(output,
              "Nulo cannot reach the display :9999: no X server answers there, or it does not let "
              "this user in.\n");
}

}  // namespace
}  // namespace nulo
