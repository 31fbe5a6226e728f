#include "app/AppDelegate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QApplication>
#include <fstream>

#include "fakes/FakeAudioFileWriter.h"
#include "fakes/FakeEventTap.h"
#include "fakes/FakeHttpSession.h"
#include "fakes/FakeMainQueue.h"
#include "fakes/FakeStatusItem.h"
#include "fakes/FakeUpdateParts.h"
#include "fakes/FakeUserDefaults.h"
#include "fakes/PrintedLines.h"
#include "platform/Backends.h"
#include "rig/process/FakeClock.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/sound/FakeMicrophone.h"

namespace nulo {
namespace {

using testing::Contains;
using testing::ElementsAre;
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
        void post(Report) override {}
    };
    struct FakeNotifications final : Notifications {
        std::vector<std::string> titles;
        void show(const Notice& notice) override { titles.push_back(notice.title); }
    };

    struct FakeLoginItem final : LoginItem {
        int registrations = 0;
        Outcome result = Success{};
        Outcome registerItem() override {
            ++registrations;
            return result;
        }
    };
    struct FakeRemoteControl final : RemoteControl {
        RemoteActions actions;
        std::vector<bool> states;
        void setActions(RemoteActions newActions) override { actions = std::move(newActions); }
        void setRecording(bool recording) override { states.push_back(recording); }
    };

    AppDelegateTest() {
        m_defaults.booleans["nuloHasLaunched"] = true;
        m_defaults.numbers["nuloLastUpdateCheck"] =
            std::chrono::duration<double>(m_clock.wallTime().time_since_epoch()).count();
    }

    void writeServiceFile(const std::string& text) {
        fs::create_directories(m_configFile.configDir());
        std::ofstream(m_configFile.configDir() / "service.json") << text;
    }
    void launch() {
        m_delegate.emplace(
            AppDelegate::Dependencies{.mainQueue = m_queue,
                                      .clock = m_clock,
                                      .print = m_printed.print(),
                                      .log = m_log,
                                      .configFile = m_configFile,
                                      .temporaryFolder = m_folder / "tmp",
                                      .recordingsFolder = m_folder / "tmp/nulo",
                                      .defaultBaseURL = "http://127.0.0.1:8737",
                                      .version = "1.2",
                                      .microphone = m_microphone,
                                      .makeAudioFileWriter = m_files.maker(),
                                      .eventTapSource = m_tapSource,
                                      .permissionIsTheUsersToGive = m_permissionIsTheUsersToGive,
                                      .pasteboard = m_ignored,
                                      .pasteKeystroke = m_ignored,
                                      .makeHttpSession = m_http.factory(),
                                      .openShortcutHelp = [this] { ++m_helpOpened; },
                                      .overlayPlacement = *m_overlayPlacement,
                                      .alerts = m_alerts,
                                      .statusItem = m_statusItem,
                                      .remoteControl = m_remoteControl,
                                      .notifications = m_notifications,
                                      .userDefaults = m_defaults,
                                      .loginItem = m_loginItem,
                                      .updateHttp = m_updateHttp,
                                      .updateWindows = m_updateWindows,
                                      .processLauncher = m_launcher,
                                      .terminate = [this] { ++m_terminations; }});
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
    void dictate() {
        pressChord();
        m_queue.advance(2s);
        releaseChord();
    }
    /// Clicks the button of the one alert that is shown.
    static void click(const QString& button) {
        for (QWidget* window : QApplication::topLevelWidgets())
            for (auto* candidate : window->findChildren<QAbstractButton*>())
                if (candidate->isVisible() && candidate->text() == button)
                    return candidate->click();
        FAIL() << "no button " << button.toStdString();
    }
    static int alertsShown() {
        const auto windows = QApplication::topLevelWidgets();
        return static_cast<int>(std::count_if(windows.begin(), windows.end(), [](QWidget* window) {
            return window->isVisible() && window->findChild<QAbstractButton*>();
        }));
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
    std::unique_ptr<OverlayPlacement> m_overlayPlacement = makeX11OverlayPlacement();
    Alerts m_alerts{m_clock, [this] { return m_overlayPlacement->visibleFrame(); }};
    FakeStatusItem m_statusItem;
    FakeRemoteControl m_remoteControl;
    FakeNotifications m_notifications;
    FakeUserDefaults m_defaults;
    FakeLoginItem m_loginItem;
    FakeUpdateHttp m_updateHttp;
    FakeUpdateWindows m_updateWindows;
    FakeProcessLauncher m_launcher;
    bool m_permissionIsTheUsersToGive = false;
    int m_helpOpened = 0;
    int m_terminations = 0;
    std::optional<AppDelegate> m_delegate;
};

TEST_F(AppDelegateTest, startsInOrderAndWarmsUpAfterASecond) {
    launch();
    EXPECT_THAT(m_printed.lines(), ElementsAre(HasSubstr("Config created at: "),
                                               "Global key monitor started (Option+Space)",
                                               "Nulo is running. Use Option+Space to record."));
    m_queue.advance(0.99s);
    EXPECT_THAT(requests(), IsEmpty());
    m_queue.advance(0.02s);
    EXPECT_THAT(requests(), ElementsAre("HEAD http://127.0.0.1:8737/api/version"));
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

// Updates asked of somebody else's service, or a restart needed, because of a typing error.
TEST_F(AppDelegateTest, dictatesAsSoonAsTheConfigurationIsMended) {
    m_defaults.numbers.clear();
    writeServiceFile(R"({"baseURL": "https://a.example"})");
    std::ofstream(m_configFile.configFile()) << "{";
    launch();
    EXPECT_THAT(m_printed.lines(), Contains("WARNING: No config found."));
    EXPECT_THAT(m_statusItem.icon.detail, HasSubstr("config.json"));
    dictate();
    EXPECT_THAT(m_printed.lines(), Contains("No transcription service configured."));
    EXPECT_THAT(requests(), IsEmpty());
    m_queue.advance(1.1s);
    EXPECT_THAT(m_updateHttp.urls, ElementsAre("https://a.example/api/version"));

    choose(m_statusItem.menu, "Rechercher une mise a jour...");
    EXPECT_EQ(m_updateHttp.urls.size(), 2u);

    m_configFile.save(defaultConfig());
    dictate();
    EXPECT_THAT(requests(), Contains("POST https://a.example/api/transcribe"));
    EXPECT_THAT(m_notifications.titles, ElementsAre("Reglages illisibles"));
}

// A failure that nobody sees, that is shown for ever or again and again; a take that never ends.
TEST_F(AppDelegateTest, showsWhatGoesWrongOnceAMinuteUntilADictationSucceeds) {
    const auto isPanelShown = [] {
        const auto windows = QApplication::topLevelWidgets();
        return std::any_of(windows.begin(), windows.end(), [](QWidget* window) {
            return window->isVisible() && window->findChild<WaveformView*>();
        });
    };
    launch();
    m_microphone.permission = MicrophonePermission::denied;
    dictate();
    EXPECT_FALSE(isPanelShown());
    m_microphone.permission = MicrophonePermission::authorized;
    m_microphone.startOutcome = Error{"no microphone is connected"};
    pressChord();
    m_queue.advance(0.2s);
    EXPECT_FALSE(isPanelShown());
    releaseChord();
    dictate();
    EXPECT_THAT(m_notifications.titles,
                ElementsAre("Rien n'est enregistre", "Rien n'est enregistre"));
    EXPECT_THAT(m_statusItem.icon.detail, HasSubstr("no microphone is connected"));
    m_queue.advance(60s);
    dictate();
    EXPECT_EQ(m_notifications.titles.size(), 3u);

    m_microphone.startOutcome = Success{};
    pressChord();
    m_queue.advance(0.2s);
    m_remoteControl.actions.startRecording();
    EXPECT_TRUE(isPanelShown());
    m_queue.advance(std::chrono::minutes(15));
    EXPECT_FALSE(m_microphone.isRunning());
    EXPECT_THAT(m_notifications.titles, Contains("Enregistrement termine"));
    m_remoteControl.actions.stopRecording();
    releaseChord();
    EXPECT_TRUE(isPanelShown()) << "the panel of the take that is being processed";
    EXPECT_THAT(requests().back(), HasSubstr("/api/transcribe"));
    m_http.exchanges.back().answer(200, "data: [DONE]\n");
    m_queue.advance(1s);
    EXPECT_EQ(m_statusItem.icon.detail, "");
    EXPECT_FALSE(isPanelShown());
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

// No dialog, two on top of each other, or one each time that another program takes the keyboard.
TEST_F(AppDelegateTest, explainsAMissingPermission) {
    for (const bool isTheUsers : {true, false}) {
        m_permissionIsTheUsersToGive = isTheUsers;
        m_tapSource.trusted = false;
        launch();
        EXPECT_EQ(m_statusItem.icon.description, "Nulo - Accessibilite requise");
        m_queue.advance(1.9s);
        EXPECT_EQ(alertsShown(), 0);
        m_queue.advance(0.2s);
        EXPECT_EQ(alertsShown(), 1);
        click("Ouvrir les Reglages");
        EXPECT_EQ(std::exchange(m_helpOpened, 0), 1);

        m_tapSource.trusted = true;
        m_queue.advance(2.1s);
        EXPECT_EQ(m_statusItem.icon.description, "Nulo");
        EXPECT_THAT(titles(m_statusItem.menu), Contains("Mode"));
        for (const bool obstructed : {true, false}) {
            m_tapSource.onObstructed(obstructed);
            EXPECT_EQ(m_statusItem.icon.description,
                      obstructed ? "Nulo - Accessibilite requise" : "Nulo");
        }
        m_tapSource.trusted = false;
        m_queue.advance(5.1s);
        EXPECT_EQ(alertsShown(), isTheUsers ? 1 : 0);
        EXPECT_THAT(titles(m_statusItem.menu), Contains("⚠️ Accessibilite requise"));
        m_delegate.reset();
        EXPECT_EQ(alertsShown(), 0);
    }
    EXPECT_THAT(m_printed.lines(), Contains("Accessibility granted — Nulo is ready.").Times(2));
    EXPECT_THAT(m_printed.lines(), Contains(HasSubstr("Option+Space is off")).Times(2));
}

TEST_F(AppDelegateTest, offersToStartAtLoginOnce) {
    m_defaults.booleans.clear();
    m_loginItem.result = Error{"cannot write it"};
    launch();
    EXPECT_EQ(m_defaults.boolean("nuloHasLaunched"), true);
    m_queue.advance(0.9s);
    EXPECT_EQ(alertsShown(), 0);
    m_queue.advance(0.2s);
    click("Oui, activer");
    EXPECT_THAT(m_printed.lines(), Contains("Failed to register login item: cannot write it"));
    launch();
    m_queue.advance(10s);
    EXPECT_EQ(alertsShown(), 0);
}

// A desktop's own shortcut, pressed twice or while the chord is held.
TEST_F(AppDelegateTest, isDrivenFromOutsideLikeByTheChord) {
    writeServiceFile(R"({"baseURL": "https://a.example", "headers": {"X-Key": "k"}})");
    launch();
    m_remoteControl.actions.stopRecording();
    m_remoteControl.actions.toggle();
    m_remoteControl.actions.startRecording();
    m_queue.runPending();
    EXPECT_TRUE(m_microphone.isRunning());
    m_queue.advance(2s);
    m_remoteControl.actions.toggle();
    m_remoteControl.actions.stopRecording();
    EXPECT_FALSE(m_microphone.isRunning());
    EXPECT_THAT(requests(), Contains("POST https://a.example/api/transcribe"));
    EXPECT_THAT(m_http.exchanges.back().request.headers,
                Contains(std::pair<std::string, std::string>("X-Key", "k")));
    pressChord();
    EXPECT_THAT(m_remoteControl.states, ElementsAre(true, false, true));
    releaseChord();

    m_delegate.reset();
    m_remoteControl.actions.toggle();
    EXPECT_FALSE(m_microphone.isRunning());
}

}  // namespace
}  // namespace nulo
