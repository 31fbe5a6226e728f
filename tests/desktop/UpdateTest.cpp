// The whole road of an update: the running program, its windows, the service and the script.

#include <gmock/gmock.h>

#include <regex>

#include "base/FileIO.h"
#include "desktop/ScreenReader.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

using namespace testing;

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
