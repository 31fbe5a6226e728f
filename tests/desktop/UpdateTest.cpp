// The whole road of an update: the running program, its menu and its windows, and a service that
// plays its part well or badly.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QSettings>
#include <fstream>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>

#include "base/FileIO.h"
#include "desktop/ScreenReader.h"
#include "rig/desktop/DesktopSession.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/WaitUntil.h"
#include "support/TrayPanel.h"

namespace nulo {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Le;
using testing::SizeIs;
using testing::StartsWith;
using Connection = ScriptedHttpServer::Connection;
using Handler = ScriptedHttpServer::Handler;

const std::string running = NULO_VERSION;
const std::string offer = "Nulo 9.10 est disponible";
const std::string failure = "Erreur de mise a jour";
const std::string install = "Installer maintenant";

double secondsNow() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

Handler sends(const std::string& response) {
    return [response](const auto&, Connection& client) { client.send(response); };
}
Handler stalls(const std::string& response) {
    return [response](const auto&, Connection& client) {
        client.stall();
        client.send(response);
    };
}
void cutOff(const ReceivedRequest&, Connection& client) {
    client.send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nPK");
    client.close();
}

class UpdateTest : public testing::Test {
  protected:
    UpdateTest() {
        m_desktop.writeServiceFile(m_service.url(), "t0ken");
        m_desktop.writeConfig("openai", "raw-transcription");
        answer("/api/transcribe", sends(httpResponse(200, "bonjour")));
        answer("/api/version", sends(versionResponse("9.10")));
    }

    void answer(const std::string& target, Handler handler) {
        const std::lock_guard lock(m_mutex);
        m_answers[target] = std::move(handler);
    }
    std::string versionResponse(const std::string& version, const std::string& url = {}) {
        const nlohmann::json info = {
            {"version", version},
            {"build", 7},
            {"downloadUrl", url.empty() ? m_service.url("/nulo.zip") : url},
            {"releaseNotes", "Plus rapide."},
            {"minVersion", "0.0"}};
        return httpResponse(200, info.dump());
    }
    /// What updates have asked for; warming the connection up is no part of that.
    std::vector<std::string> requested() const {
        std::vector<std::string> targets;
        for (const ReceivedRequest& request : m_service.requests())
            if (request.method == "GET") {
                targets.push_back(request.target);
                EXPECT_FALSE(request.header("Authorization")) << "archives may lie anywhere";
            }
        return targets;
    }
    bool waitForRequests(std::size_t count) {
        return waitUntil([&] { return requested().size() >= count; });
    }

    void startNulo() {
        m_panel.emplace(m_desktop.bus().address());
        m_desktop.startNulo();
        ASSERT_TRUE(processUntil([&] { return m_panel->isRegistered(); }));
        // Until then the menu still changes.
        ASSERT_TRUE(m_desktop.waitForPrinted("Accessibility granted"));
    }
    void chooseTheMenusEntry() {
        EXPECT_EQ(m_panel->click(m_panel->row("Rechercher une mise a jour...").id), "");
    }
    /// Presses the button of the only window that is shown.
    bool press(const std::string& button) {
        return waitUntil([&] {
            const auto windows = m_reader.windows();
            return windows.size() == 1 && m_reader.press(windows[0], button);
        });
    }
    void expectWindow(const std::string& title, const std::string& text,
                      const std::vector<std::string>& buttons) {
        EXPECT_TRUE(m_reader.waitForWindow(title));
        EXPECT_THAT(m_reader.windows(), ElementsAre(title));
        EXPECT_THAT(m_reader.textsIn(title), IsSupersetOf({title, text}));
        EXPECT_EQ(m_reader.buttonsIn(title), buttons);
    }
    /// More than five seconds of a person reading; the panel hangs meanwhile, which is its affair.
    void dictate() {
        m_desktop.dictate(recordedSpeech().file.parent_path() /
                          "sense_and_sensibility_01_austen_64kb-0890.wav");
        EXPECT_TRUE(m_desktop.waitForPrinted("text copied: bonjour"));
        EXPECT_EQ(m_desktop.clipboard(), "bonjour");
    }

    /// What updates have in the temporary folder.
    std::vector<fs::path> files() const {
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator(m_desktop.recordingsFolder().parent_path()))
            if (entry.path().filename().string().starts_with("nulo-"))
                found.push_back(entry);
        return found;
    }

    int m_argumentCount = 1;
    char m_name[7] = "update";
    char* m_arguments[2] = {m_name, nullptr};
    QCoreApplication m_application{m_argumentCount, m_arguments};
    std::mutex m_mutex;
    std::map<std::string, Handler> m_answers;
    DesktopSession m_desktop;
    ScreenReader m_reader{m_desktop.environment(), m_desktop.bus().address()};
    std::optional<Panel> m_panel;
    ScriptedHttpServer m_service{[this](const ReceivedRequest& request, Connection& client) {
        Handler handler;
        {
            const std::lock_guard lock(m_mutex);
            handler = m_answers[request.target];
        }
        if (request.method != "HEAD" && handler)
            handler(request, client);
        else
            client.send(httpResponse(request.method == "HEAD" ? 200 : 404, ""));
    }};
};

TEST_F(UpdateTest, saysWhatWentWrongAndLeavesNothing) {
    const std::string cut = "The connection to 127.0.0.1:" + std::to_string(m_service.port()) +
                            " was closed before the answer was complete";
    const Handler offers = sends(versionResponse("9.10"));
    const Handler archive = sends(httpResponse(200, "PK"));
    const Handler loses = [this](const auto&, Connection& client) {
        client.send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nPK");
        for (const fs::path& file : files())
            fs::remove(file);
        client.send("..");
    };
    struct Case {
        std::string text;
        Handler version;
        Handler archive = {};  // when the update is offered
        Handler script = {};
    };
    startNulo();
    for (const Case& row : std::initializer_list<Case>{
             {"Impossible de verifier les mises a jour.", cutOff},
             {"Impossible de verifier les mises a jour.", sends(httpResponse(200, ""))},
             {"Reponse invalide du serveur.", sends(httpResponse(404, "<html>Not here</html>"))},
             {"URL de telechargement invalide.",
              sends(versionResponse("9.10", "http://192.0.2.1/nulo.zip")), archive},
             {"Telechargement echoue : " + cut, offers, cutOff},
             {"Telechargement echoue.", offers, loses},
             {"Installation echouee : Script download failed", offers, archive,
              sends(httpResponse(404, "Not here"))},
             {"Installation echouee : /bin/bash cannot be given a text with a NUL character",
              sends(versionResponse(std::string("9.\0", 3))), archive,
              sends(httpResponse(200, "#!/bin/bash"))}}) {
        answer("/api/version", row.version);
        answer("/nulo.zip", row.archive);
        answer("/update.sh", row.script);
        chooseTheMenusEntry();
        EXPECT_TRUE(!row.archive || press(install)) << row.text;
        expectWindow(failure, row.text, {"OK"});
        EXPECT_TRUE(press("OK"));
        EXPECT_TRUE(m_reader.waitForNoWindow());
        EXPECT_THAT(files(), IsEmpty()) << row.text;
    }
    EXPECT_EQ(m_desktop.stopNulo(), 0);
}

TEST_F(UpdateTest, downloadsAndHandsOverToTheScript) {
    std::string zip;
    for (int i = 0; i < 300'000; ++i)
        zip += static_cast<char>(i * 7 + i / 256);
    answer("/nulo.zip", stalls(httpResponse(200, zip)));
    answer("/update.sh", sends(httpResponse(200, R"sh(#!/bin/bash
        printf '%s|' "$0" "$@" >"$1/arguments"
        readlink /proc/$$/fd/[012] >"$1/descriptors"
        while kill -0 "$NULO_PID" && [ -d "$1" ]; do sleep 0.05; done
        touch "$1/saw the end"
        until [ -e "$1/go on" ] || ! [ -d "$1" ]; do sleep 0.05; done
        touch "$1/done")sh")));
    startNulo();
    const double before = secondsNow();
    chooseTheMenusEntry();
    expectWindow(offer, "Vous utilisez la version " + running + ".\n\nPlus rapide.",
                 {install, "Plus tard"});
    const double after = secondsNow();
    const QSettings defaults(QString::fromStdString(m_desktop.home() / ".config/nulo/defaults.ini"),
                             QSettings::IniFormat);
    EXPECT_THAT(defaults.value("nuloLastUpdateCheck").toDouble(), AllOf(Ge(before), Le(after)));
    EXPECT_THAT(requested(), ElementsAre("/api/version")) << "nothing before the user agrees";

    EXPECT_TRUE(press(install));
    expectWindow("Telechargement de Nulo 9.10...", "Telechargement", {});
    m_service.release();
    EXPECT_EQ(m_desktop.nulo().wait(std::chrono::seconds(20)), 0);
    EXPECT_THAT(requested(), ElementsAre("/api/version", "/nulo.zip", "/update.sh"));
    auto printed = m_desktop.printed();  // without what the warming up says, whenever it does
    std::erase_if(printed, [](const std::string& line) { return line.starts_with("[nulo"); });
    EXPECT_THAT(
        std::vector(printed.end() - 3, printed.end()),
        ElementsAre("Downloading update from " + m_service.url("/nulo.zip"),
                    "Downloading updater script...", "Starting updater script and quitting..."));

    ASSERT_THAT(files(), SizeIs(1));
    const fs::path folder = files()[0];
    EXPECT_THAT(folder.filename(), StartsWith("nulo-update-"));
    EXPECT_TRUE(waitUntil([&] { return exists(folder / "saw the end"); }));
    std::ofstream(folder / "go on");
    EXPECT_TRUE(waitUntil([&] { return exists(folder / "done"); })) << "the script did not survive";
    EXPECT_EQ(readFile(folder / "arguments", 1000), folder.string() + "/update.sh|" +
                                                        folder.string() + "|" + folder.string() +
                                                        "/nulo.zip|9.10|");
    EXPECT_EQ(readFile(folder / "descriptors", 1000), "/dev/null\n/dev/null\n/dev/null\n");
    EXPECT_TRUE(readFile(folder / "nulo.zip", 1'000'000) == zip) << "changed on the way";
}

TEST_F(UpdateTest, looksByItselfOnceAnHourAndSpeaksOnlyOfWhatIsNewer) {
    m_desktop.setLastUpdateCheck(std::chrono::seconds(3601));
    answer("/api/version", sends(httpResponse(404, "<html>")));
    startNulo();
    ASSERT_TRUE(waitForRequests(1));
    answer("/api/version", sends(versionResponse(running)));
    chooseTheMenusEntry();
    expectWindow("Nulo est a jour", "Vous utilisez la derniere version (" + running + ").", {"OK"});
    EXPECT_TRUE(press("OK"));
    EXPECT_EQ(m_desktop.stopNulo(), 0);

    answer("/api/version", sends(versionResponse("9.10")));
    startNulo();
    dictate();  // longer than the three seconds after which it would look
    EXPECT_THAT(requested(), SizeIs(2));
    EXPECT_TRUE(m_reader.waitForNoWindow());
    EXPECT_EQ(m_desktop.stopNulo(), 0);

    m_desktop.setLastUpdateCheck(std::chrono::seconds(3601));
    startNulo();
    EXPECT_TRUE(m_reader.waitForWindow(offer));
    dictate();  // the chord's Space is not the dialog's, which would press its button
    EXPECT_TRUE(press("Plus tard"));
    EXPECT_TRUE(m_reader.waitForNoWindow());
    EXPECT_THAT(requested(), SizeIs(3));
    EXPECT_EQ(m_desktop.stopNulo(), 0);
}

TEST_F(UpdateTest, answersSeveralRequestsOfTheUserWithOneWindow) {
    answer("/api/version", stalls(versionResponse("9.10")));
    startNulo();
    chooseTheMenusEntry();
    chooseTheMenusEntry();
    ASSERT_TRUE(waitForRequests(2));
    m_service.release();
    EXPECT_TRUE(m_reader.waitForWindow(offer));
    chooseTheMenusEntry();
    EXPECT_TRUE(press("Plus tard"));
    EXPECT_TRUE(m_reader.waitForNoWindow());
    chooseTheMenusEntry();
    EXPECT_TRUE(m_reader.waitForWindow(offer));
    EXPECT_THAT(m_reader.windows(), SizeIs(1));
    EXPECT_THAT(requested(), SizeIs(3)) << "the one that was open was brought to the front";
}

TEST_F(UpdateTest, endsWellWhereverItIsStopped) {
    const std::vector<std::string> road = {"/api/version", "/nulo.zip", "/update.sh"};
    for (std::size_t stage = 0; stage < road.size(); ++stage) {
        // An archive that is not there is nevertheless the script's to judge.
        answer("/api/version", sends(versionResponse("9.10")));
        answer("/nulo.zip", sends(httpResponse(404, "Not here")));
        answer(road[stage], stalls(""));
        const std::size_t before = requested().size();
        startNulo();
        chooseTheMenusEntry();
        EXPECT_TRUE(stage == 0 || press(install));
        EXPECT_TRUE(waitForRequests(before + stage + 1));
        EXPECT_THAT(files(), SizeIs(stage > 0 ? 1 : 0));
        EXPECT_EQ(m_desktop.stopNulo(), 0) << road[stage];
        EXPECT_THAT(files(), IsEmpty()) << road[stage];
    }
}

}  // namespace
}  // namespace nulo
