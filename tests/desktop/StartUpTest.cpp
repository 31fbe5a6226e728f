// Starting where there is no desktop to start on.

#include <gtest/gtest.h>

#include "base/FileIO.h"
#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo {
namespace {

TEST(StartUp, needsNoDesktopToSayWhyItDoesNotStart) {
    struct Case {
        std::string display, argument;
        int status;
        std::string output;
    };
    for (const Case& c :
         {Case{"DISPLAY", "--quiet", 1,
               "Nulo needs a desktop: neither $DISPLAY nor $WAYLAND_DISPLAY is set.\n"},
          {"DISPLAY=:9999", "--quiet", 1,
           "Nulo cannot reach the display :9999: no X server answers there, or it does not let "
           "this user in.\n"},
          {"DISPLAY", "--version", 0, "nulo " NULO_VERSION "\n"},
          {"DISPLAY", "--record", 2,
           "nulo: unknown argument \"--record\"\n"
           "usage: nulo [--quiet | --help | --version]\n"}}) {
        const TemporaryFolder home;
        ChildProcess program(
            {NULO_BINARY_FOLDER "/nulo", c.argument},
            {{c.display, "WAYLAND_DISPLAY", "HOME=" + home.path().string()}, home / "output"});
        EXPECT_EQ(program.wait(std::chrono::seconds(20)), c.status);
        EXPECT_EQ(readFile(home / "output", 1000), c.output);
    }
}

}  // namespace
}  // namespace nulo
