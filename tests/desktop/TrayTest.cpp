// The program on a desktop: started twice, driven over the bus, and where there is no bus.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "desktop/ScreenReader.h"
#include "rig/desktop/DesktopSession.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

// A program that grabs the keys a second time, or that cannot be reached where there is no tray.
TEST(Tray, startingItAgainShowsTheSettingsOfTheOneThatRuns) {
    DesktopSession desktop;
    const ScreenReader reader{desktop.environment(), desktop.bus().address()};
    desktop.startNulo();
    const auto [status, output] = desktop.startNuloAgain();
    EXPECT_EQ(status, 0);
    EXPECT_THAT(output, HasSubstr("Nulo is already running"));
    EXPECT_THAT(output, Not(HasSubstr("Key tap")));
    ASSERT_TRUE(reader.waitForWindow("Nulo - Reglages"));
    EXPECT_THAT(reader.buttonsIn("Nulo - Reglages"), Contains("Menu de Nulo"));

    desktop.nulo().signal(SIGSTOP);
    EXPECT_EQ(desktop.startNuloAgain().first, 1);
    desktop.nulo().signal(SIGCONT);
    EXPECT_EQ(desktop.stopNulo(), 0);
}

TEST(Tray, aShortcutOfTheDesktopsDrivesIt) {
    DesktopSession desktop;
    desktop.startNulo();
    const auto call = [&](const std::string& method, const std::string& interface = "org.nulo.Nulo",
                          const std::vector<std::string>& arguments = {}) {
        std::vector<std::string> command = {
            "gdbus",          "call",          "--session",
            "--dest",         "org.nulo.Nulo", "--object-path",
            "/org/nulo/Nulo", "--method",      interface + "." + method};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return outputOf(command, {desktop.environment(), {}});
    };
    const auto state = [&] {
        return call("Get", "org.freedesktop.DBus.Properties", {"org.nulo.Nulo", "State"});
    };
    call("Toggle");
    EXPECT_TRUE(waitUntil([&] { return state() == "(<'recording'>,)\n"; }));
    call("StopRecording");
    EXPECT_TRUE(desktop.waitForPrinted("Recording too short"));
    EXPECT_EQ(state(), "(<'idle'>,)\n");
    EXPECT_ANY_THROW(call("NoSuchMethod"));
    EXPECT_ANY_THROW(call("Toggle", "org.nulo.Nulo", {"1"}));
}

// An unreachable bus must cost the tray and the remote control only.
TEST(Tray, dictatesWithoutABus) {
    DesktopSession desktop;
    desktop.bus().stop();
    desktop.startTextWindow();
    desktop.startNulo();
    desktop.pressChord();
    EXPECT_TRUE(desktop.waitForPrinted("Recording started"));
    desktop.releaseChord();
    EXPECT_TRUE(desktop.waitForPrinted("Recording too short"));
    EXPECT_TRUE(desktop.waitForPrinted("No D-Bus session"));
    EXPECT_EQ(desktop.stopNulo(), 0);
}

}  // namespace
}  // namespace nulo
