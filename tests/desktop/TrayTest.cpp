// The program on a desktop without a tray: what it offers by itself, started twice, driven over the
// bus, and without that bus.

#include <gmock/gmock.h>

#include <csignal>

#include "desktop/ScreenReader.h"
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
    ASSERT_TRUE(reader.waitForWindow(offer));
    EXPECT_THAT(reader.buttonsIn(offer), ElementsAre("Oui, activer", "Non merci"));
    EXPECT_TRUE(reader.press(offer, "Oui, activer"));
    EXPECT_TRUE(desktop.waitForPrinted("Login item registered."));
    EXPECT_TRUE(exists(desktop.home() / ".config/autostart/nulo.desktop"));

    const auto [status, output] = desktop.startNuloAgain();
    EXPECT_EQ(status, 0);
    EXPECT_THAT(output, AllOf(HasSubstr("Nulo is already running"), Not(HasSubstr("Key tap"))));
    ASSERT_TRUE(reader.waitForWindow("Nulo - Reglages"));
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

}  // namespace
}  // namespace nulo
