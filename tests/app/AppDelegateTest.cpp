#include "app/AppDelegate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <fstream>

#include "fakes/FakeAudioFileWriter.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeEventTap.h"
#include "fakes/FakeHttpSession.h"
#include "fakes/FakeMainQueue.h"
#include "fakes/FakeMicrophone.h"
#include "fakes/PrintedLines.h"
#include "support/TemporaryFolder.h"

namespace nulo {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

/// The whole program but for its platform.
class AppDelegateTest : public testing::Test {
  protected:
    struct Ignored final : Pasteboard, PasteKeystroke {
        void setString(std::string_view) override {}
        void post() override {}
    };

    void writeServiceFile(const std::string& text) {
        fs::create_directories(m_configFile.configDir());
        std::ofstream(m_configFile.configDir() / "service.json") << text;
    }
    void launch() {
        m_delegate.emplace(AppDelegate::Surroundings{.mainQueue = m_queue,
                                                     .clock = m_clock,
                                                     .print = m_printed.print(),
                                                     .log = m_log,
                                                     .configFile = m_configFile,
                                                     .temporaryFolder = m_folder / "tmp",
                                                     .defaultBaseURL = "http://127.0.0.1:8737",
                                                     .microphone = m_microphone,
                                                     .makeAudioFileWriter = m_files.maker(),
                                                     .eventTapSource = m_tapSource,
                                                     .pasteboard = m_ignored,
                                                     .pasteKeystroke = m_ignored,
                                                     .makeHttpSession = m_http.factory(),
                                                     .openShortcutHelp = [] {}});
        m_delegate->applicationDidFinishLaunching();
    }
    void pressChord() {
        m_tapSource.option(true);
        m_tapSource.space(true);
        m_queue.runPending();
    }
    void releaseChord() {
        m_tapSource.space(false);
        m_queue.runPending();
    }
    std::vector<std::string> requests() {
        std::vector<std::string> all;
        for (const auto& exchange : m_http.exchanges)
            all.push_back(exchange.request.method + " " + exchange.request.url);
        return all;
    }

    TemporaryFolder m_folder;
    FakeClock m_clock;
    FakeMainQueue m_queue{&m_clock};
    PrintedLines m_printed;
    ConfigFile m_configFile{m_folder.path(), m_printed.print()};
    PipelineLog m_log{m_folder / "log", m_clock, m_printed.print()};
    FakeMicrophone m_microphone;
    FakeAudioFiles m_files;
    FakeEventTapSource m_tapSource;
    FakeHttp m_http;
    Ignored m_ignored;
    std::optional<AppDelegate> m_delegate;
};

TEST_F(AppDelegateTest, startsInOrderAndWarmsUpAfterASecond) {
    launch();
    EXPECT_THAT(m_printed.lines(),
                testing::ElementsAre(HasSubstr("Config created at: "),
                                     "Global key monitor started (Option+Space)",
                                     "Nulo is running. Use Option+Space to record."));
    m_queue.advance(0.99s);
    EXPECT_THAT(requests(), IsEmpty());
    m_queue.advance(0.02s);
    EXPECT_THAT(requests(), testing::ElementsAre("HEAD http://127.0.0.1:8737/api/version"));
}

TEST_F(AppDelegateTest, theChordRecordsAndItsEndSendsTheTake) {
    writeServiceFile(R"({"baseURL": "https://a.example", "headers": {"X-Key": "k"}})");
    launch();
    pressChord();
    EXPECT_TRUE(m_microphone.isRunning());
    m_queue.advance(2s);
    releaseChord();
    EXPECT_FALSE(m_microphone.isRunning());
    EXPECT_THAT(requests(), Contains("POST https://a.example/api/transcribe"));
    EXPECT_THAT(m_http.exchanges.back().request.headers,
                Contains(std::pair<std::string, std::string>("X-Key", "k")));
}

TEST_F(AppDelegateTest, aRefusedServiceFileIsSaidAndSendsNothingAnywhere) {
    writeServiceFile(R"({"baseURL": "http://example.org"})");
    launch();
    EXPECT_THAT(m_printed.lines(), Contains(HasSubstr("service.json refused: ")));
    pressChord();
    m_queue.advance(2s);
    releaseChord();
    EXPECT_THAT(m_printed.lines(), Contains("No transcription service configured."));
    EXPECT_THAT(requests(), IsEmpty());
    EXPECT_TRUE(fs::is_empty(m_folder / "tmp/nulo")) << "a take was left behind";
}

TEST_F(AppDelegateTest, startsWithoutAConfiguration) {
    fs::create_directories(m_configFile.configDir());
    std::ofstream(m_configFile.configFile()) << "{";
    launch();
    EXPECT_THAT(m_printed.lines(), Contains("WARNING: No config found."));
}

TEST_F(AppDelegateTest, quittingWhileRecordingSendsNothingAndLetsTheKeyboardGo) {
    launch();
    pressChord();
    m_queue.advance(2s);
    m_delegate->applicationWillTerminate();
    m_queue.runPending();
    EXPECT_FALSE(m_microphone.isRunning());
    EXPECT_FALSE(m_tapSource.hasTap());
    EXPECT_THAT(requests(), Not(Contains(HasSubstr("/api/transcribe"))));
    m_delegate.reset();
    m_queue.advance(10s);
}

TEST_F(AppDelegateTest, saysWhenThePermissionComesAndGoes) {
    m_tapSource.trusted = false;
    launch();
    m_tapSource.trusted = true;
    m_queue.advance(2.1s);
    EXPECT_THAT(m_printed.lines(), Contains("Accessibility granted — Nulo is ready."));
    m_tapSource.trusted = false;
    m_queue.advance(5.1s);
    EXPECT_THAT(m_printed.lines(), Contains(HasSubstr("Option+Space is off")));
}

}  // namespace
}  // namespace nulo
