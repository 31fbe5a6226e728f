#include "update/UpdateChecker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "base/FileIO.h"
#include "fakes/FakeMainQueue.h"
#include "fakes/FakeUpdateParts.h"
#include "fakes/FakeUserDefaults.h"
#include "fakes/PrintedLines.h"
#include "rig/process/FakeClock.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using Answer = UpdateWindows::Answer;
using Check = UpdateChecker::Check;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

std::string versionBody(const std::string& version,
                        const std::string& downloadUrl = "https://cdn.example/nulo.zip") {
    return nlohmann::json{{"version", version},
                          {"build", 7},
                          {"downloadUrl", downloadUrl},
                          {"releaseNotes", "Faster."},
                          {"minVersion", "1.0"}}
        .dump();
}

class UpdateCheckerTest : public testing::Test {
  protected:
    UpdateCheckerTest() { makeChecker(); }

    void makeChecker() {
        m_checker.emplace("https://a.example", "1.2.9",
                          UpdateChecker::Dependencies{
                              .http = m_http,
                              .windows = m_windows,
                              .launcher = m_launcher,
                              .defaults = m_defaults,
                              .clock = m_clock,
                              .mainQueue = m_queue,
                              .print = m_printed.print(),
                              .terminate = [this] { ++m_terminations; },
                              .temporaryFolder = m_folder / "tmp",
                              .makeUuid = [this] { return "uuid" + std::to_string(++m_uuids); }});
        fs::create_directories(m_folder / "tmp");
    }
    void check(Check kind, Result<std::string> body) {
        m_checker->checkForUpdates(kind);
        m_http.answerGet(std::move(body));
    }
    /// Up to the download, accepted by the user.
    void accept(const std::string& downloadUrl = "https://cdn.example/nulo.zip") {
        check(Check::byUser, versionBody("1.3", downloadUrl));
        m_windows.answer(Answer::install);
    }
    bool leftNothing() { return fs::is_empty(m_folder / "tmp"); }
    std::string lastShown() { return m_windows.shown.empty() ? "" : m_windows.shown.back(); }

    TemporaryFolder m_folder;
    FakeClock m_clock;
    FakeMainQueue m_queue{&m_clock};
    PrintedLines m_printed;
    FakeUserDefaults m_defaults;
    FakeUpdateHttp m_http;
    FakeUpdateWindows m_windows;
    FakeProcessLauncher m_launcher;
    int m_terminations = 0;
    int m_uuids = 0;
    std::optional<UpdateChecker> m_checker;
};

TEST_F(UpdateCheckerTest, silentChecksKeepAnHourFromAnyCheck) {
    check(Check::silent, versionBody("1.2.9"));
    EXPECT_EQ(m_defaults.number("nuloLastUpdateCheck"), 365.0 * 24 * 3600 * 55);
    m_clock.advance(3599s);
    m_checker->checkForUpdates(Check::silent);
    EXPECT_THAT(m_http.urls, ElementsAre("https://a.example/api/version"));
    check(Check::byUser, versionBody("1.2.9"));
    m_windows.close();
    m_clock.advance(3599s);
    m_checker->checkForUpdates(Check::silent);
    EXPECT_THAT(m_http.urls, SizeIs(2)) << "the user's check counts too";
    m_clock.advance(1s);
    check(Check::silent, versionBody("1.2.9"));
    EXPECT_THAT(m_http.urls, SizeIs(3));
    EXPECT_THAT(m_windows.shown, ElementsAre("up to date: 1.2.9"));
}

TEST_F(UpdateCheckerTest, eachAnswerIsShownToTheOneWhoAsked) {
    struct Case {
        Result<std::string> body;
        std::string silent, byUser;
    };
    const std::string unreachable = "error: Impossible de verifier les mises a jour.";
    const std::string invalid = "error: Reponse invalide du serveur.";
    const std::string offer = "update to 1.2.10 from 1.2.9: Faster.";
    for (const auto& [body, silent, byUser] :
         std::initializer_list<Case>{{Error{"no"}, "", unreachable},
                                     {std::string(), "", unreachable},
                                     {std::string("<html>404</html>"), "", invalid},
                                     {versionBody("1.2.9.0"), "", "up to date: 1.2.9"},
                                     {versionBody("v2"), "", "up to date: 1.2.9"},
                                     {versionBody("1.2.10"), offer, offer}}) {
        for (const Check kind : {Check::silent, Check::byUser}) {
            m_windows.shown.clear();
            m_defaults.numbers.clear();
            makeChecker();
            check(kind, body);
            EXPECT_EQ(lastShown(), kind == Check::silent ? silent : byUser);
        }
    }
}

TEST_F(UpdateCheckerTest, overlappingChecksShowOneWindow) {
    m_checker->checkForUpdates(Check::silent);
    m_checker->checkForUpdates(Check::byUser);
    m_checker->checkForUpdates(Check::byUser);
    EXPECT_THAT(m_http.urls, SizeIs(3));
    m_http.answerGet(Error{"the silent one fails, and the user still waits"});
    EXPECT_THAT(m_windows.shown, IsEmpty());
    m_http.answerGet(versionBody("1.3"));
    m_http.answerGet(versionBody("1.3"));
    m_checker->checkForUpdates(Check::silent);
    m_checker->checkForUpdates(Check::byUser);
    EXPECT_THAT(m_windows.shown,
                ElementsAre("update to 1.3 from 1.2.9: Faster.", "brought to front"));
    EXPECT_THAT(m_http.urls, SizeIs(3));

    m_windows.answer(Answer::later);
    EXPECT_THAT(m_http.urls, SizeIs(3)) << "Later means later";
    m_checker->checkForUpdates(Check::byUser);
    check(Check::byUser, versionBody("1.3"));
    EXPECT_THAT(m_windows.shown, SizeIs(3)) << "a refusal is not remembered";
    m_windows.answer(Answer::later);
    m_http.answerGet(versionBody("1.3"));
    EXPECT_THAT(m_windows.shown, SizeIs(3)) << "asked before the window was closed";
}

TEST_F(UpdateCheckerTest, handsTheDownloadOverToTheScriptAndQuits) {
    accept();
    m_checker->checkForUpdates(Check::byUser);
    m_http.finishDownload("zip");
    m_http.finishDownload("#!/bin");
    const fs::path work = m_folder / "tmp/nulo-update-uuid2";
    EXPECT_THAT(m_launcher.commands,
                ElementsAre(ElementsAre("/bin/bash", work / "update.sh", work.string(),
                                        work / "nulo.zip", "1.3")));
    EXPECT_EQ(readFile(work / "nulo.zip", 10), "zip");
    EXPECT_EQ(readFile(work / "update.sh", 10), "#!/bin");
    EXPECT_EQ(fs::status(work / "update.sh").permissions(), fs::perms(0755));
    EXPECT_EQ(fs::status(work).permissions(), fs::perms(0700)) << "others could swap the script";
    EXPECT_THAT(m_http.urls,
                ElementsAre("https://a.example/api/version", "https://cdn.example/nulo.zip",
                            "https://a.example/update.sh"));
    EXPECT_THAT(
        m_printed.lines(),
        ElementsAre("Downloading update from https://cdn.example/nulo.zip",
                    "Downloading updater script...", "Starting updater script and quitting..."));
    EXPECT_THAT(m_windows.shown, ElementsAre("update to 1.3 from 1.2.9: Faster.", "progress: 1.3",
                                             "brought to front", "progress closed"));
    m_queue.advance(0.29s);
    EXPECT_EQ(m_terminations, 0);
    m_queue.advance(0.02s);
    EXPECT_EQ(m_terminations, 1);
    m_checker.reset();
    EXPECT_TRUE(fs::exists(work / "nulo.zip")) << "the script needs it now";
}

TEST_F(UpdateCheckerTest, fetchesFromSecureAddressesOnly) {
    for (const char* url : {"", "nulo.zip", "http://cdn.example/nulo.zip", "ftp://h/nulo.zip",
                            "file:///etc/passwd", "http://127.0.0.1.example/a", "https://a b/"}) {
        accept(url);
        EXPECT_EQ(lastShown(), "error: URL de telechargement invalide.") << url;
        m_windows.close();
    }
    accept("http://127.0.0.1:8737/updates/nulo.zip");
    EXPECT_EQ(lastShown(), "progress: 1.3");
}

TEST_F(UpdateCheckerTest, aFailedDownloadIsShownAndLeavesNothing) {
    accept();
    m_http.failDownload("The connection was closed");
    EXPECT_THAT(m_windows.shown,
                ElementsAre("update to 1.3 from 1.2.9: Faster.", "progress: 1.3", "progress closed",
                            "error: Telechargement echoue : The connection was closed"));
    m_windows.close();
    accept();
    m_http.loseDownload();
    EXPECT_EQ(lastShown(), "error: Telechargement echoue.");
    EXPECT_TRUE(leftNothing());
    m_windows.close();
    accept();
    EXPECT_EQ(lastShown(), "progress: 1.3") << "it can be tried again";
    m_windows.cancel();
    m_windows.cancel();
    EXPECT_EQ(lastShown(), "progress closed");
    EXPECT_FALSE(m_http.isBusy());
    EXPECT_TRUE(leftNothing());
    accept();
    EXPECT_EQ(lastShown(), "progress: 1.3") << "after the user has ended it too";
}

// What is started instead of a script would leave the user without the program.
TEST_F(UpdateCheckerTest, aFailedInstallationIsShownAndLeavesNothing) {
    const auto expectFailure = [&](const std::string& why) {
        EXPECT_THAT(lastShown(), StartsWith("error: Installation echouee : " + why));
        EXPECT_TRUE(leftNothing());
        m_windows.close();
    };
    const std::string script = "#!/bin/bash\nrm -rf /";
    for (const auto& [content, status, isWhole] :
         {std::tuple(std::string("No update is configured"), 404, true),
          std::tuple(script, 404, true), std::tuple(std::string(), 200, true),
          std::tuple(std::string("<html>Hello</html>"), 200, true),
          std::tuple(script, 200, false)}) {
        accept();
        m_http.finishDownload("zip");
        m_http.finishDownload(content, status, isWhole);
        expectFailure("Script download failed");
    }
    accept();
    m_http.finishDownload("zip");
    m_http.failDownload("refused");
    expectFailure("Script download failed");
    m_launcher.result = Error{"/bin/bash cannot be started: No such file or directory"};
    accept();
    m_http.finishDownload("zip");
    m_http.finishDownload("#!/bin");
    expectFailure("/bin/bash cannot be started: No such file or directory");
    m_queue.advance(1s);
    EXPECT_EQ(m_terminations, 0);

    accept();
    fs::create_symlink("nowhere",
                       m_folder / ("tmp/nulo-update-uuid" + std::to_string(m_uuids + 1)));
    m_http.finishDownload("zip");
    EXPECT_THAT(lastShown(), StartsWith("error: Installation echouee : the folder "));
}

TEST_F(UpdateCheckerTest, theEndOfTheProgramLeavesNothingBehind) {
    m_checker->checkForUpdates(Check::byUser);
    m_checker.reset();
    m_http.answerGet(versionBody("1.3"));
    EXPECT_THAT(m_windows.shown, IsEmpty());

    makeChecker();
    accept();
    m_checker.reset();
    EXPECT_EQ(lastShown(), "progress closed");
    m_http.failDownload("late");

    makeChecker();
    accept();
    m_http.finishDownload("zip");
    m_checker.reset();
    EXPECT_TRUE(leftNothing());

    makeChecker();
    check(Check::byUser, versionBody("1.3"));
    m_checker.reset();
    m_windows.answer(Answer::install);
    EXPECT_THAT(m_launcher.commands, IsEmpty());
}

}  // namespace
}  // namespace nulo
