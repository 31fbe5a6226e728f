// The program on a desktop: what it offers by itself, started twice, driven over the bus, without
// that bus, in a panel, and where there is no desktop.

#include <gmock/gmock.h>

#include <csignal>
#include <memory>

#include "base/FileIO.h"
#include "desktop/ScreenReader.h"
#include "rig/desktop/DesktopPanel.h"
#include "rig/desktop/DesktopSession.h"
#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

using namespace testing;

// An offer that nobody hears of; keys grabbed a second time; a shortcut of the desktop's that does
// nothing; an unreachable bus that costs more than the tray and the remote control.
TEST(Tray, isNotNeeded) {
    DesktopSession desktop{DesktopSession::Launch::first};
    const ScreenReader reader{desktop};
    desktop.startNulo();
    const std::string offer = "Lancer Nulo au demarrage ?";
    ASSERT_THAT(reader.buttonsIn(offer), ElementsAre("Oui, activer", "Non merci"));
    EXPECT_TRUE(reader.press(offer, "Oui, activer"));
    EXPECT_TRUE(desktop.waitForPrinted("Login item registered."));
    EXPECT_TRUE(exists(desktop.home() / ".config/autostart/nulo.desktop"));

    const auto [status, output] = desktop.startNuloAgain();
    EXPECT_EQ(status, 0);
    EXPECT_THAT(output, AllOf(HasSubstr("Nulo is already running"), Not(HasSubstr("Key tap"))));
    EXPECT_THAT(reader.buttonsIn("Nulo - Reglages"), Contains("Menu de Nulo"));

    const auto call = [&](std::vector<std::string> method) {
        std::vector<std::string> command = {"gdbus",          "call",          "--session",
                                            "--dest",         "org.nulo.Nulo", "--object-path",
                                            "/org/nulo/Nulo", "--method"};
        command.insert(command.end(), method.begin(), method.end());
        return outputOf(command, {desktop.environment(), {}});
    };
    const auto state = [&] {
        return call({"org.freedesktop.DBus.Properties.Get", "org.nulo.Nulo", "State"});
    };
    call({"org.nulo.Nulo.Toggle"});
    EXPECT_TRUE(waitUntil([&] { return state() == "(<'recording'>,)\n"; }));
    call({"org.nulo.Nulo.StopRecording"});
    EXPECT_TRUE(desktop.waitForPrinted("Recording too short"));
    EXPECT_EQ(state(), "(<'idle'>,)\n");
    EXPECT_ANY_THROW(call({"org.nulo.Nulo.NoSuchMethod"}));
    EXPECT_ANY_THROW(call({"org.nulo.Nulo.Toggle", "1"}));

    desktop.nulo().signal(SIGSTOP);
    EXPECT_EQ(desktop.startNuloAgain().first, 1);
    desktop.nulo().signal(SIGCONT);
    EXPECT_EQ(desktop.stopNulo(), 0);

    desktop.bus().stop();
    desktop.startNulo();
    desktop.pressChord();
    EXPECT_TRUE(desktop.waitForPrinted("Recording started"));
    desktop.releaseChord();
    EXPECT_TRUE(desktop.waitForPrinted("Recording too short"));
    EXPECT_TRUE(desktop.waitForPrinted("No D-Bus session"));
    EXPECT_EQ(desktop.stopNulo(), 0);
}

TEST(PanelTest, showsTheIconAgainAfterACrashAndTheMenuQuits) {
    DesktopSession desktop;
    auto panel = std::make_unique<DesktopPanel>(desktop);
    desktop.startNulo();
    EXPECT_TRUE(panel->waitForIcon(DesktopPanel::Icon::idle));
    panel.reset();
    panel = std::make_unique<DesktopPanel>(desktop);
    EXPECT_TRUE(panel->waitForIcon(DesktopPanel::Icon::idle));

    desktop.pressChord();
    EXPECT_TRUE(panel->waitForIcon(DesktopPanel::Icon::recording));
    desktop.releaseChord();
    EXPECT_TRUE(panel->waitForIcon(DesktopPanel::Icon::idle));

    ASSERT_FALSE(panel->openMenu().isEmpty());
    desktop.keyboard().tap(XTestKeyboard::up);  // to the last entry
    desktop.keyboard().tap(XTestKeyboard::enter);
    EXPECT_EQ(desktop.nulo().wait(std::chrono::seconds(10)), 0);
    EXPECT_TRUE(panel->waitForIcon(DesktopPanel::Icon::none));
}

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
           "usage: nulo [--quiet | --doctor [--json] | --help | --version]\n"}}) {
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
