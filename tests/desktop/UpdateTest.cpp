// The whole road of an update: the running program, its windows, the service and the script.

#include <gmock/gmock.h>

#include "base/FileIO.h"
#include "desktop/ScreenReader.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

namespace fs = std::filesystem;
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
                printf '%s|' "$0" "$@" >"$1/arguments"
                readlink /proc/$$/fd/[012] >"$1/descriptors"
                while kill -0 "$NULO_PID"; do sleep 0.05; done
                touch "$1/done")sh"));
    });
    DesktopSession desktop;
    const ScreenReader reader{desktop};
    const auto folders = [&] {
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator(desktop.recordingsFolder().parent_path()))
            if (entry.path().filename().string().starts_with("nulo-update"))
                found.push_back(entry);
        return found;
    };
    desktop.writeServiceFile(service.url());
    desktop.setLastUpdateCheck(std::chrono::seconds(3601));
    desktop.startNulo();
    const std::string offer = "Nulo 9.10 est disponible";
    ASSERT_TRUE(reader.waitForWindow(offer));
    desktop.pressChord();
    EXPECT_TRUE(desktop.waitForPrinted("Recording started"));
    desktop.releaseChord();
    EXPECT_TRUE(desktop.waitForPrinted("Recording too short"));
    EXPECT_THAT(reader.buttonsIn(offer), ElementsAre("Installer maintenant", "Plus tard"));
    EXPECT_THAT(folders(), IsEmpty());

    EXPECT_TRUE(reader.press(offer, "Installer maintenant"));
    EXPECT_EQ(desktop.nulo().wait(std::chrono::seconds(20)), 0);
    ASSERT_THAT(folders(), SizeIs(1));
    const fs::path folder = folders()[0];
    EXPECT_TRUE(waitUntil([&] { return exists(folder / "done"); })) << "the script did not survive";
    const std::string path = folder;
    EXPECT_EQ(readFile(folder / "arguments", 1000),
              path + "/update.sh|" + path + "|" + path + "/nulo.zip|9.10|");
    EXPECT_EQ(readFile(folder / "descriptors", 1000), "/dev/null\n/dev/null\n/dev/null\n");
    EXPECT_TRUE(readFile(folder / "nulo.zip", 1'000'000) == archive) << "changed on the way";
}

}  // namespace
}  // namespace nulo
