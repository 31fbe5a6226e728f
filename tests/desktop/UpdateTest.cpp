// The whole road of an update: the running program, its menu and its windows, and the service.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <nlohmann/json.hpp>

#include "base/FileIO.h"
#include "desktop/ScreenReader.h"
#include "rig/desktop/DesktopSession.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string offer = "Nulo 9.10 est disponible";
const std::string install = "Installer maintenant";

class UpdateTest : public testing::Test {
  protected:
    UpdateTest() {
        m_desktop.writeServiceFile(m_service.url());
        m_desktop.setLastUpdateCheck(std::chrono::seconds(3601));
    }

    std::string answerTo(const std::string& target) {
        if (target == "/api/version")
            return httpResponse(200, nlohmann::json{{"version", "9.10"},
                                                    {"build", 7},
                                                    {"downloadUrl", m_service.url("/nulo.zip")},
                                                    {"releaseNotes", "Plus rapide."},
                                                    {"minVersion", "0.0"}}
                                         .dump());
        return httpResponse(200, target == "/nulo.zip" ? m_archive : m_script);
    }
    /// What updates have in the temporary folder.
    std::vector<fs::path> files() const {
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator(m_desktop.recordingsFolder().parent_path()))
            if (entry.path().filename().string().starts_with("nulo-update"))
                found.push_back(entry);
        return found;
    }

    int m_argumentCount = 1;
    char m_name[7] = "update";
    char* m_arguments[2] = {m_name, nullptr};
    QCoreApplication m_application{m_argumentCount, m_arguments};
    const std::string m_archive = std::string(300'000, 'P');
    std::string m_script;
    DesktopSession m_desktop;
    ScreenReader m_reader{m_desktop.environment(), m_desktop.bus().address()};
    ScriptedHttpServer m_service{[this](const ReceivedRequest& request, auto& client) {
        client.send(request.method == "HEAD" ? httpResponse(200, "") : answerTo(request.target));
    }};
};

// A script that dies with the program, gets wrong arguments, or is told the user's terminal.
TEST_F(UpdateTest, isOfferedByItselfAndHandsOverToTheScript) {
    m_script = R"sh(#!/bin/bash
        printf '%s|' "$0" "$@" >"$1/arguments"
        readlink /proc/$$/fd/[012] >"$1/descriptors"
        while kill -0 "$NULO_PID"; do sleep 0.05; done
        touch "$1/done")sh";
    m_desktop.startNulo();
    ASSERT_TRUE(m_reader.waitForWindow(offer));
    EXPECT_THAT(m_reader.buttonsIn(offer), ElementsAre(install, "Plus tard"));
    EXPECT_THAT(files(), IsEmpty()) << "something was fetched before the user agreed";
    EXPECT_TRUE(m_reader.press(offer, install));
    EXPECT_EQ(m_desktop.nulo().wait(std::chrono::seconds(20)), 0);
    ASSERT_EQ(files().size(), 1u);
    const fs::path folder = files()[0];
    EXPECT_TRUE(waitUntil([&] { return exists(folder / "done"); })) << "the script did not survive";
    EXPECT_EQ(readFile(folder / "arguments", 1000), folder.string() + "/update.sh|" +
                                                        folder.string() + "|" + folder.string() +
                                                        "/nulo.zip|9.10|");
    EXPECT_EQ(readFile(folder / "descriptors", 1000), "/dev/null\n/dev/null\n/dev/null\n");
    EXPECT_TRUE(readFile(folder / "nulo.zip", 1'000'000) == m_archive) << "changed on the way";
}

// The chord's Space taken for an answer by the dialog that has the focus.
TEST_F(UpdateTest, isNotAcceptedByTheChord) {
    m_desktop.startNulo();
    ASSERT_TRUE(m_reader.waitForWindow(offer));
    m_desktop.pressChord();
    EXPECT_TRUE(m_desktop.waitForPrinted("Recording started"));
    m_desktop.releaseChord();
    EXPECT_TRUE(m_desktop.waitForPrinted("Recording too short"));
    EXPECT_TRUE(m_reader.press(offer, "Plus tard"));
    EXPECT_TRUE(m_reader.waitForNoWindow());
    EXPECT_THAT(files(), IsEmpty());
    EXPECT_EQ(m_desktop.stopNulo(), 0);
}

}  // namespace
}  // namespace nulo
