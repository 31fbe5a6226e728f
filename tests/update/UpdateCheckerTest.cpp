#include "update/UpdateChecker.h"

#include "base/FileIO.h"
#include "fakes/FakeUpdateParts.h"
#include "fakes/PartTest.h"
#include "update/IsNewer.h"
#include "update/VersionInfo.h"

namespace nulo {
namespace {

using Answer = UpdateWindows::Answer;
using Check = UpdateChecker::Check;

const std::string archive = "https://cdn.example/nulo.zip";
const std::string offer = "update to 1.3 from 1.2.9: Faster.";
const std::string progress = "progress: 1.3";
const std::string progressEnds = "progress closed";

std::string versionBody(const std::string& version, const std::string& downloadUrl = archive) {
    return R"({"version":")" + version + R"(","build":7,"downloadUrl":")" + downloadUrl +
           R"(","releaseNotes":"Faster.","minVersion":"1.0"})";
}

class UpdateCheckerTest : public PartTest {
  protected:
    UpdateCheckerTest() { makeChecker(); }

    void makeChecker() {
        fs::create_directories(m_tmp);
        m_checker.emplace("https://a.example", "1.2.9",
                          UpdateChecker::Dependencies(
                              m_http, m_windows, m_launcher, m_defaults, m_clock, m_queue,
                              m_printed.print(), [this] { ++m_terminations; }, m_tmp,
                              [this] { return "uuid" + std::to_string(++m_uuids); }));
    }
    void check(Check kind, Result<std::string> body) {
        m_checker->checkForUpdates(kind);
        m_http.answerGet(std::move(body));
    }
    /// Up to the download, accepted by the user.
    void accept(const std::string& downloadUrl = archive) {
        check(Check::byUser, versionBody("1.3", downloadUrl));
        m_windows.answer(Answer::install);
    }
    /// Since the last call.
    std::vector<std::string> shown() { return std::exchange(m_windows.shown, {}); }

    const fs::path m_tmp = m_folder / "tmp";
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
    EXPECT_FALSE(m_http.isBusy());
    check(Check::byUser, versionBody("1.2.9"));
    m_windows.close();
    m_clock.advance(3599s);
    m_checker->checkForUpdates(Check::silent);
    EXPECT_FALSE(m_http.isBusy()) << "the user's check counts too";
    m_clock.advance(1s);
    m_checker->checkForUpdates(Check::silent);
    EXPECT_TRUE(m_http.isBusy());
    EXPECT_THAT(m_http.urls, Each("https://a.example/api/version"));
}

TEST_F(UpdateCheckerTest, eachAnswerIsShownToTheOneWhoAsked) {
    const std::string unreachable = "error: Impossible de verifier les mises a jour.";
    const std::string invalid = "error: Reponse invalide du serveur.";
    const std::string upToDate = "up to date: 1.2.9";
    const std::tuple<Result<std::string>, std::string, bool> rows[] = {
        {Error{"no"}, unreachable, false},
        {std::string(), unreachable, false},
        {std::string("<html>404</html>"), invalid, false},
        {versionBody("1.2.9.0"), upToDate, false},
        {versionBody("1.2.10"), "update to 1.2.10 from 1.2.9: Faster.", true}};
    for (const auto& [body, window, isNews] : rows) {
        for (const Check kind : {Check::silent, Check::byUser}) {
            m_defaults.numbers.clear();
            makeChecker();
            check(kind, body);
            EXPECT_EQ(shown(), std::vector(isNews || kind == Check::byUser ? 1 : 0, window));
        }
    }
}

TEST_F(UpdateCheckerTest, overlappingChecksShowOneWindow) {
    for (const Check kind : {Check::silent, Check::byUser, Check::byUser})
        m_checker->checkForUpdates(kind);
    m_http.answerGet(Error{"the silent one fails, and the user still waits"});
    EXPECT_THAT(shown(), IsEmpty());
    m_http.answerGet(versionBody("1.3"));
    m_http.answerGet(versionBody("1.3"));
    m_checker->checkForUpdates(Check::silent);
    m_checker->checkForUpdates(Check::byUser);
    EXPECT_THAT(shown(), ElementsAre(offer, "brought to front"));
    EXPECT_THAT(m_http.urls, SizeIs(3));
    m_windows.answer(Answer::later);
    m_checker->checkForUpdates(Check::byUser);
    check(Check::byUser, versionBody("1.3"));
    EXPECT_THAT(shown(), ElementsAre(offer)) << "a refusal is not remembered";
    m_windows.answer(Answer::later);
    m_http.answerGet(versionBody("1.3"));
    EXPECT_THAT(shown(), IsEmpty()) << "asked before the window was closed";
}

TEST_F(UpdateCheckerTest, handsTheDownloadOverToTheScriptAndQuits) {
    accept();
    m_checker->checkForUpdates(Check::byUser);
    m_http.finishDownload("zip");
    m_http.finishDownload("#!/bin");
    const fs::path work = m_tmp / "nulo-update-uuid2";
    EXPECT_THAT(m_launcher.commands,
                ElementsAre(ElementsAre("/bin/bash", work / "update.sh", work.string(),
                                        work / "nulo.zip", "1.3")));
    EXPECT_EQ(readFile(work / "nulo.zip", 10), "zip");
    EXPECT_EQ(readFile(work / "update.sh", 10), "#!/bin");
    EXPECT_EQ(fs::status(work / "update.sh").permissions(), fs::perms(0755));
    EXPECT_EQ(fs::status(work).permissions(), fs::perms(0700)) << "others could swap the script";
    EXPECT_THAT(m_http.urls, ElementsAre("https://a.example/api/version", archive,
                                         "https://a.example/update.sh"));
    EXPECT_THAT(m_printed.lines(),
                ElementsAre("Downloading update from " + archive, "Downloading updater script...",
                            "Starting updater script and quitting..."));
    EXPECT_THAT(shown(), ElementsAre(offer, progress, "brought to front", progressEnds));
    m_queue.advance(0.29s);
    EXPECT_EQ(m_terminations, 0);
    m_queue.advance(0.02s);
    EXPECT_EQ(m_terminations, 1);
    m_checker.reset();
    EXPECT_TRUE(fs::exists(work / "nulo.zip")) << "the script needs it now";
}

// What is started instead of a script would leave the user without the program.
TEST_F(UpdateCheckerTest, aFailureIsShownAndLeavesNothing) {
    const std::string script = "#!/bin/bash\nrm -rf /";
    const std::string refused = "Installation echouee : Script download failed";
    const auto getting = [&](std::string content, int status = 200, bool isWhole = true) {
        return [=, this] {
            m_http.finishDownload("zip");
            m_http.finishDownload(content, status, isWhole);
        };
    };
    const std::pair<std::function<void()>, std::string> ends[] = {
        {[&] { m_http.failDownload("it hung up"); }, "Telechargement echoue : it hung up"},
        {[&] { m_http.loseDownload(); }, "Telechargement echoue."},
        {getting("No update is configured", 404), refused},
        {getting(script, 404), refused},
        {getting(""), refused},
        {getting("<html>Hello</html>"), refused},
        {getting(script, 200, false), refused},
        {[&] { m_http.finishDownload("zip"), m_http.failDownload("it hung up"); }, refused},
        {[&] { m_launcher.result = Error{"no /bin/bash"}, getting("#!/bin")(); },
         "Installation echouee : no /bin/bash"},
        {[&] {
             fs::create_symlink("x", m_tmp / ("nulo-update-uuid" + std::to_string(m_uuids + 1)));
             m_http.finishDownload("zip");
         },
         "Installation echouee : the folder "}};
    for (const auto& [end, error] : ends) {
        accept();
        end();
        EXPECT_THAT(shown(),
                    ElementsAre(offer, progress, progressEnds, StartsWith("error: " + error)));
        EXPECT_TRUE(fs::is_empty(m_tmp)) << error;
        m_windows.close();
    }
    m_queue.advance(1s);
    EXPECT_EQ(m_terminations, 0);

    accept("http://cdn.example/nulo.zip");
    EXPECT_THAT(shown(), ElementsAre(offer, "error: URL de telechargement invalide."));
}

TEST_F(UpdateCheckerTest, itsEndAndTheUsersLeaveNothingBehind) {
    accept();
    m_windows.close();
    m_windows.close();
    EXPECT_FALSE(m_http.isBusy());
    accept("http://127.0.0.1:8737/updates/nulo.zip");
    m_http.finishDownload("zip");
    m_checker.reset();
    EXPECT_THAT(shown(), ElementsAre(offer, progress, progressEnds, offer, progress, progressEnds));
    EXPECT_TRUE(fs::is_empty(m_tmp));

    makeChecker();
    accept();
    m_checker.reset();
    EXPECT_THAT(shown(), ElementsAre(offer, progress, progressEnds));
    makeChecker();
    m_checker->checkForUpdates(Check::byUser);
    m_checker.reset();
    m_http.answerGet(versionBody("1.3"));
    EXPECT_THAT(shown(), IsEmpty());
    makeChecker();
    check(Check::byUser, versionBody("1.3"));
    m_checker.reset();
    m_windows.answer(Answer::install);
    EXPECT_THAT(m_launcher.commands, IsEmpty());
}

// Catches versions compared as text, and pieces that are no numbers counted as 0 or read in part.
TEST(IsNewer, comparesNumberByNumber) {
    const std::tuple<std::string, std::string, bool> pairs[] = {
        {"1.3", "1.2.9", true},
        {"1.10", "1.9", true},
        {"1", "", true},
        {"1.2b.4", "1.3", true},
        {"1.0.1", "1.-1.5", true},
        {"1.2", "9223372036854775808.1.1", true},  // left out, as all that is no number
        {"1.2", "1.2.0", false},
        {"1..2", ".1.2.", false},
        {"v2", "0.0", false},
        {"1.+-2", "1", false}};
    for (const auto& [one, other, expected] : pairs) {
        EXPECT_EQ(isNewer(one, other), expected) << one << " " << other;
        EXPECT_FALSE(isNewer(other, one)) << other << " " << one;
    }
}

std::string body(const std::string& build, const std::string& rest = R"("minVersion":"1")") {
    return R"({"version":"1.3","build":)" + build +
           R"(,"downloadUrl":"https://h/a.zip","releaseNotes":"é\n",)" + rest + "}";
}

// A window about half of an answer; a value of another type, or too large, taken as some number.
TEST(VersionInfo, isReadWholeOrNotAtAll) {
    const auto info = parsedVersionInfo(
        body("-7", R"("minVersion":"1","more":{"version":"9"},"version2":[[1],{}])"));
    ASSERT_TRUE(info);
    EXPECT_EQ(info->version + info->downloadUrl + info->releaseNotes + info->minVersion,
              "1.3https://h/a.zipé\n1");
    EXPECT_EQ(info->build, -7);
    for (const std::string& wrong :
         {std::string("[]"), body("\"7\""), body("7.5"), body("18446744073709551615"),
          body("1", R"("minversion":"1")"), body("1", R"("minVersion":[])"),
          body("1", "\"minVersion\":\"\xff\""), body("1") + "x", std::string(1 << 20, '['),
          body("1", "\"minVersion\":\"" + std::string(largestVersionInfo, 'x') + "\"")})
        EXPECT_FALSE(parsedVersionInfo(wrong)) << wrong.substr(0, 200);
}

}  // namespace
}  // namespace nulo
