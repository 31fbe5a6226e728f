// Starting where there is no desktop to start on, and ending with the one that there was.

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "rig/desktop/DesktopSession.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

std::pair<std::optional<int>, std::string> startWith(std::vector<std::string> environment,
                                                     const std::string& argument) {
    const TemporaryFolder home;
    environment.push_back("HOME=" + home.path().string());
    std::vector<std::string> command{NULO_BINARY_FOLDER "/nulo"};
    if (!argument.empty())
        command.push_back(argument);
    ChildProcess program(std::move(command), {std::move(environment), home / "output"});
    const auto status = program.wait(std::chrono::seconds(20));
    std::ostringstream output;
    output << std::ifstream(home / "output").rdbuf();
    return {status, output.str()};
}

TEST(StartUp, needsNoDesktopToSayWhyItDoesNotStart) {
    struct Case {
        std::string display;
        std::string argument;
        int status;
        std::string output;
    };
    for (const Case& c :
         {Case{"DISPLAY", "", 1,
               "Nulo needs a desktop: neither $DISPLAY nor $WAYLAND_DISPLAY is set.\n"},
          {"DISPLAY=:9999", "", 1,
           "Nulo cannot reach the display :9999: no X server answers there, or it does not let "
           "this user in.\n"},
          {"DISPLAY", "--version", 0, "nulo " NULO_VERSION "\n"},
          {"DISPLAY", "--record", 2,
           "nulo: unknown argument \"--record\"\n"
           "usage: nulo [--quiet | --help | --version]\n"}}) {
        const auto [status, output] = startWith({c.display, "WAYLAND_DISPLAY"}, c.argument);
        EXPECT_EQ(status, c.status);
        EXPECT_EQ(output, c.output);
    }
}

// Qt ends the process by itself then, with threads at work on what that destroys: what was spoken
// stays behind, the log's lines go into files named at random.
TEST(StartUp, endsWithTheDesktopAndTakesTheTakesAlong) {
    ScriptedHttpServer service([](const ReceivedRequest&, auto& client) { client.stall(); });
    DesktopSession desktop;
    desktop.writeServiceFile(service.url());
    std::filesystem::create_directory(desktop.recordingsFolder());
    std::ofstream(desktop.recordingsFolder() / "recording_2025-03-14_09-05-07.m4a") << "earlier";
    desktop.startTextWindow();
    desktop.startNulo();
    EXPECT_TRUE(std::filesystem::is_empty(desktop.recordingsFolder()));
    desktop.dictate(recordedSpeech().file);
    ASSERT_TRUE(desktop.waitForPrinted("dataTask resumed"));
    desktop.pressChord();  // another take, which is being recorded
    ASSERT_TRUE(waitUntil([&] {
        const auto folder = std::filesystem::directory_iterator(desktop.recordingsFolder());
        return std::distance(begin(folder), end(folder)) == 2;
    }));
    desktop.xServer().kill();
    EXPECT_EQ(desktop.nulo().wait(std::chrono::seconds(20)), 1);
    EXPECT_TRUE(std::filesystem::is_empty(desktop.recordingsFolder()));
}

}  // namespace
}  // namespace nulo
