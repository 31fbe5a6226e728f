// The program on a desktop: what it offers by itself, started twice, driven over the bus, without
// that bus, in a panel, where there is no desktop, and updated.

#include <gmock/gmock.h>

#include <csignal>
#include <memory>
#include <regex>

#include "base/FileIO.h"
#include "desktop/ScreenReader.h"
#include "rig/desktop/DesktopPanel.h"
#include "rig/desktop/DesktopSession.h"
#include "rig/http/ScriptedHttpServer.h"
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

    const auto call = [&](const std::string& method) {
        return outputOf({"bash", "-c",
                         "gdbus call --session --dest org.nulo.Nulo --object-path /org/nulo/Nulo "
                         "--method " +
                             method},
                        {desktop.environment(), {}});
    };
    const auto state = [&] {
        return call("org.freedesktop.DBus.Properties.Get org.nulo.Nulo State");
    };
    call("org.nulo.Nulo.Toggle");
    EXPECT_TRUE(waitUntil([&] { return state() == "(<'recording'>,)\n"; }));
    call("org.nulo.Nulo.StopRecording");
    EXPECT_TRUE(desktop.waitForPrinted("Recording too short"));
    EXPECT_EQ(state(), "(<'idle'>,)\n");
    EXPECT_ANY_THROW(call("org.nulo.Nulo.NoSuchMethod"));
    EXPECT_ANY_THROW(call("org.nulo.Nulo.Toggle 1"));

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
    const std::tuple<std::string, std::string, int, std::string> rows[] = {
        {"DISPLAY", "--quiet", 1,
         "Nulo needs a desktop: neither $DISPLAY nor $WAYLAND_DISPLAY is set.\n"},
        {"DISPLAY=:9999", "--quiet", 1,
         "Nulo cannot reach the display :9999: no X server answers there, or it does not let "
         "this user in.\n"},
        {"DISPLAY", "--version", 0, "nulo " NULO_VERSION "\n"},
        {"DISPLAY", "--record", 2,
         "nulo: unknown argument \"--record\"\n"
         "usage: nulo [--quiet | --doctor [--json] | --help | --version]\n"}};
    for (const auto& [display, argument, status, output] : rows) {
        const TemporaryFolder home;
        ChildProcess program(
            {NULO_BINARY_FOLDER "/nulo", argument},
            {{display, "WAYLAND_DISPLAY", "HOME=" + home.path().string()}, home / "output"});
        EXPECT_EQ(program.wait(std::chrono::seconds(20)), status);
        EXPECT_EQ(readFile(home / "output", 1000), output);
    }
}

// The chord's Space taken for an answer by the dialog that has the focus; something fetched before
// the user agreed; a script that dies with the program, gets wrong arguments, or is told the user's
// terminal.
TEST(Update, isOfferedByItselfAndHandsOverToTheScript) {
    const std::string archive(300'000, 'P');
    ScriptedHttpServer service([&](const ReceivedRequest& request, auto& client) {
        if (request.target == "/api/version")
            client.send(httpResponse(
                200, R"({"version": "9.10", "build": 7, "releaseNotes": "", "minVersion": "0.0",)"
                     R"("downloadUrl": ")" +
                         service.url("/nulo.zip") + "\"}"));
        else
            client.send(httpResponse(200, request.target == "/nulo.zip" ? archive : R"sh(#!/bin/bash
                printf '%s|' "$0" "$@" >~/arguments
                readlink /proc/$$/fd/[012] >~/descriptors
                while kill -0 "$NULO_PID"; do sleep 0.05; done
                cp "$2" ~/archive)sh"));
    });
    DesktopSession desktop;
    const ScreenReader reader{desktop};
    desktop.writeServiceFile(service.url());
    desktop.setLastUpdateCheck(std::chrono::seconds(3601));
    desktop.startNulo();
    const std::string offer = "Nulo 9.10 est disponible";
    ASSERT_THAT(reader.buttonsIn(offer), SizeIs(2));
    desktop.pressChord();
    EXPECT_TRUE(desktop.waitForPrinted("Recording started"));
    desktop.releaseChord();
    EXPECT_TRUE(desktop.waitForPrinted("Recording too short"));
    EXPECT_THAT(reader.buttonsIn(offer), ElementsAre("Installer maintenant", "Plus tard"));
    for (const ReceivedRequest& request : service.requests())
        EXPECT_EQ(request.target, "/api/version");

    EXPECT_TRUE(reader.press(offer, "Installer maintenant"));
    EXPECT_EQ(desktop.nulo().wait(std::chrono::seconds(20)), 0);
    const auto file = [&](const char* name) {
        return readFile(desktop.home() / name, 1'000'000).value_or("");
    };
    EXPECT_TRUE(waitUntil([&] { return file("archive") == archive; }))
        << "changed on the way, or the script did not survive";
    EXPECT_EQ(file("descriptors"), "/dev/null\n/dev/null\n/dev/null\n");
    const std::string arguments = file("arguments");
    EXPECT_TRUE(std::regex_match(
        arguments, std::regex("(.*/nulo-update-[^/]*)/update.sh\\|\\1\\|\\1/nulo.zip\\|9.10\\|")))
        << arguments;
}

}  // namespace
}  // namespace nulo
