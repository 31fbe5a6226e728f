#include "app/AppDelegate.h"

#include <QAbstractButton>
#include <QApplication>
#include <fstream>

#include "fakes/FakeAudioFileWriter.h"
#include "fakes/FakeEventTap.h"
#include "fakes/FakeHttpSession.h"
#include "fakes/FakeStatusItem.h"
#include "fakes/FakeUpdateParts.h"
#include "fakes/PartTest.h"
#include "platform/Backends.h"
#include "rig/sound/FakeMicrophone.h"

namespace nulo {
namespace {

struct FakeDesktop final : Pasteboard, PasteKeystroke, Notifications, LoginItem, RemoteControl {
    std::vector<std::string> notices, delivered;
    std::string noticeText;
    RemoteActions actions;
    std::vector<bool> states;
    void setString(std::string_view text) override { delivered.emplace_back(text); }
    bool holdsText() const override { return true; }
    void post(Report report) override {
        delivered.emplace_back("paste");
        report.onEnd(Success{});
    }
    void show(const Notice& notice) override {
        notices.push_back(notice.title);
        noticeText = notice.text;
    }
    void offer(const Notice& notice, NoticeAction) override { show(notice); }
    void withdrawOffer() override { notices.pop_back(); }
    Outcome registerItem() override { return Error{"cannot write it"}; }
    void setActions(RemoteActions newActions) override { actions = std::move(newActions); }
    void setRecording(bool recording) override { states.push_back(recording); }
};

/// The whole program but for its platform.
class AppDelegateTest : public PartTest {
  protected:
    AppDelegateTest() {
        m_defaults.booleans["nuloHasLaunched"] = true;
        m_defaults.numbers["nuloLastUpdateCheck"] = 365.0 * 24 * 3600 * 55;  // just now
    }

    void launch(const std::string& serviceFile = {}) {
        if (!serviceFile.empty()) {
            fs::create_directories(m_configFile.configDir());
            std::ofstream(m_configFile.configDir() / "service.json") << serviceFile;
        }
        m_delegate.emplace(AppDelegate::Dependencies(
            m_queue, m_clock, m_printed.print(), m_log, m_configFile, m_folder / "tmp",
            m_folder / "tmp/nulo", "http://127.0.0.1:8737", "1.2", m_microphone, m_files.maker(),
            m_tapSource, "Option+Space", m_permissionIsTheUsersToGive, m_desktop, m_desktop,
            m_http.factory(), [this] { ++m_helpOpened; }, *m_overlayPlacement, m_alerts,
            m_statusItem, m_desktop, m_desktop, m_defaults, m_desktop, m_updateHttp,
            m_updateWindows, m_launcher, nullptr, m_folder / "state"));
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
    /// Answers the last request, a streamed one with the text as its only fragment.
    void answer(int status, const std::string& text, bool isStream = true) {
        m_http.exchanges.back().answer(status, isStream
                                                   ? R"(data: {"choices":[{"delta":{"content":")" +
                                                         text + "\"}}]}\n\ndata: [DONE]\n"
                                                   : text);
        m_queue.advance(3s);
    }
    /// Notes what the program that asked is told.
    RemoteActions::Answer told() {
        m_told.clear();
        return [this](const Outcome& outcome) {
            m_told += outcome ? "done" : outcome.error().description;
        };
    }
    std::ptrdiff_t kept(const char* folder) const {
        std::error_code ignored;
        return std::distance(fs::directory_iterator(m_folder / "state" / folder, ignored), {});
    }
    /// What of that kind is on the screen.
    template <typename Part>
    static std::vector<Part*> shown() {
        std::vector<Part*> parts;
        for (const QWidget* window : QApplication::topLevelWidgets())
            for (auto* part : window->findChildren<Part*>())
                if (part->isVisible())
                    parts.push_back(part);
        return parts;
    }
    static bool isPanelShown() { return !shown<WaveformView>().empty(); }
    static std::vector<std::string> buttons() {
        std::vector<std::string> texts;
        for (const auto* button : shown<QAbstractButton>())
            texts.push_back(button->text().toStdString());
        return texts;
    }
    std::vector<std::string> requests() {
        std::vector<std::string> all;
        for (const auto& exchange : m_http.exchanges)
            all.push_back(exchange.request.method + " " + exchange.request.url);
        return all;
    }

    ConfigFile m_configFile{m_folder.path(), m_printed.print()};
    PipelineLog m_log{m_folder / "log", m_clock, m_printed.print()};
    FakeMicrophone m_microphone;
    FakeAudioFiles m_files;
    FakeEventTapSource m_tapSource;
    FakeHttp m_http;
    FakeDesktop m_desktop;
    std::unique_ptr<OverlayPlacement> m_overlayPlacement = makeX11OverlayPlacement();
    Alerts m_alerts{m_clock, [this] { return m_overlayPlacement->visibleFrame(); }};
    FakeStatusItem m_statusItem;
    FakeUserDefaults m_defaults;
    FakeUpdateHttp m_updateHttp;
    FakeUpdateWindows m_updateWindows;
    FakeProcessLauncher m_launcher;
    bool m_permissionIsTheUsersToGive = false;
    int m_helpOpened = 0;
    std::string m_told;
    std::optional<AppDelegate> m_delegate;
};

TEST_F(AppDelegateTest, startsInOrderAndQuitsWhileRecordingWithoutATrace) {
    m_defaults.booleans.clear();
    launch();
    EXPECT_THAT(m_printed.lines(), ElementsAre(HasSubstr("Config created at: "),
                                               "Global key monitor started (Option+Space)",
                                               "Nulo is running. Use Option+Space to record."));
    m_queue.advance(0.99s);
    EXPECT_THAT(requests(), IsEmpty());
    EXPECT_THAT(buttons(), IsEmpty());
    m_queue.advance(0.02s);
    EXPECT_THAT(requests(), ElementsAre("HEAD http://127.0.0.1:8737/api/version"));
    ASSERT_THAT(buttons(), ElementsAre("Oui, activer", "Non merci"));
    shown<QAbstractButton>().front()->click();
    EXPECT_THAT(m_printed.lines(), Contains("Failed to register login item: cannot write it"));
    launch();
    m_queue.advance(10s);
    EXPECT_THAT(buttons(), IsEmpty()) << "offered again";

    pressChord();
    m_queue.advance(2s);
    m_delegate->applicationWillTerminate();
    m_queue.runPending();
    EXPECT_FALSE(m_microphone.isRunning() || m_tapSource.hasTap());
    m_delegate.reset();
    m_queue.advance(10s);
    EXPECT_THAT(requests(), Not(Contains(HasSubstr("/api/transcribe"))));
}

// What was spoken, or updates asked for, sent to another service than the one that was meant; takes
// left on the disk; a restart needed because of a typing error.
TEST_F(AppDelegateTest, aRefusedFileIsSaidAndSendsNothingUntilItIsMended) {
    launch(R"({"baseURL": "http://example.org"})");
    EXPECT_THAT(m_printed.lines(), Contains(HasSubstr("service.json refused: ")));
    dictate();
    EXPECT_THAT(m_printed.lines(), Contains("No transcription service configured."));
    m_queue.advance(1s);
    EXPECT_FALSE(isPanelShown());

    m_defaults.numbers.clear();
    std::ofstream(m_configFile.configFile()) << "{";
    launch(R"({"baseURL": "https://a.example"})");
    EXPECT_THAT(m_printed.lines(), Contains("WARNING: No config found."));
    EXPECT_THAT(m_statusItem.icon.detail, HasSubstr("config.json"));
    dictate();
    EXPECT_THAT(requests(), IsEmpty());
    EXPECT_TRUE(fs::is_empty(m_folder / "tmp/nulo"));
    m_queue.advance(1.1s);
    choose(m_statusItem.menu, "Rechercher une mise a jour...");
    EXPECT_THAT(m_updateHttp.urls, ElementsAre("https://a.example/api/version", _));
    m_configFile.save(defaultConfig());
    dictate();
    EXPECT_THAT(requests(), Contains("POST https://a.example/api/transcribe"));
    EXPECT_THAT(m_desktop.notices, Contains("Reglages illisibles"));
}

// A failure that nobody sees, that is shown for ever or again and again; a take that never ends; a
// panel that goes while the microphone is open.
TEST_F(AppDelegateTest, showsWhatGoesWrongOnceAMinuteUntilADictationSucceeds) {
    launch();
    m_microphone.permission = MicrophonePermission::denied;
    dictate();
    m_microphone.permission = MicrophonePermission::authorized;
    m_microphone.startOutcome = Error{"no microphone is connected"};
    pressChord();
    m_queue.advance(0.2s);
    EXPECT_FALSE(isPanelShown());
    releaseChord();
    dictate();
    EXPECT_THAT(m_desktop.notices, ElementsAre("Rien n'est enregistre", "Rien n'est enregistre"));
    EXPECT_THAT(m_statusItem.icon.detail, HasSubstr("no microphone is connected"));
    m_queue.advance(60s);
    dictate();
    EXPECT_THAT(m_desktop.notices, SizeIs(3));

    m_microphone.startOutcome = Success{};
    pressChord();
    m_queue.advance(0.2s);
    m_desktop.actions.startRecording();
    EXPECT_TRUE(isPanelShown());
    m_queue.advance(std::chrono::minutes(15));
    EXPECT_FALSE(m_microphone.isRunning());
    EXPECT_THAT(m_desktop.notices, Contains("Enregistrement termine"));
    m_desktop.actions.stopRecording();
    releaseChord();
    EXPECT_TRUE(isPanelShown()) << "the panel of the take that is being processed";
    EXPECT_THAT(requests().back(), HasSubstr("/api/transcribe"));
    m_http.exchanges.back().answer(200, "data: [DONE]\n");
    m_queue.advance(1s);
    EXPECT_EQ(m_statusItem.icon.detail, "");
    EXPECT_FALSE(isPanelShown());
}

// No dialog, two on top of each other, or one each time that another program takes the keyboard.
TEST_F(AppDelegateTest, explainsAMissingPermission) {
    for (const bool isTheUsers : {true, false}) {
        m_permissionIsTheUsersToGive = isTheUsers;
        m_tapSource.trusted = false;
        m_tapSource.undecided = !isTheUsers;
        launch();
        m_queue.advance(isTheUsers ? 1.9s : 9.9s);
        EXPECT_THAT(buttons(), IsEmpty());
        m_tapSource.undecided = false;
        m_queue.advance(0.2s);
        ASSERT_THAT(buttons(), ElementsAre("Ouvrir les Reglages", "Plus tard"));
        shown<QAbstractButton>().front()->click();
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
        EXPECT_THAT(buttons(), SizeIs(isTheUsers ? 2 : 0));
        EXPECT_THAT(titles(m_statusItem.menu), Contains("⚠️ Accessibilite requise"));
        m_delegate.reset();
        EXPECT_THAT(buttons(), IsEmpty());
    }
    EXPECT_THAT(m_printed.lines(), Contains("Accessibility granted — Nulo is ready.").Times(2));
    EXPECT_THAT(m_printed.lines(), Contains(HasSubstr("Option+Space is off")).Times(2));
}

// A desktop's own shortcut, pressed twice or while the chord is held.
TEST_F(AppDelegateTest, isDrivenFromOutsideLikeByTheChord) {
    launch(R"({"baseURL": "https://a.example", "headers": {"X-Key": "k"}})");
    m_desktop.actions.stopRecording();
    m_desktop.actions.toggle();
    m_desktop.actions.startRecording();
    m_queue.advance(2s);
    EXPECT_TRUE(m_microphone.isRunning());
    m_desktop.actions.toggle();
    m_desktop.actions.stopRecording();
    EXPECT_FALSE(m_microphone.isRunning());
    EXPECT_THAT(requests(), Contains("POST https://a.example/api/transcribe"));
    EXPECT_THAT(m_http.exchanges.back().request.headers, Contains(Pair("X-Key", "k")));
    pressChord();
    EXPECT_THAT(m_desktop.states, ElementsAre(true, false, true));
    releaseChord();
    m_delegate.reset();
    m_desktop.actions.toggle();
    EXPECT_FALSE(m_microphone.isRunning());
}

// A text that is pasted over another that is on its way, or given out once it is forgotten; one
// kept that nobody wanted kept; a dictation that the disk ends.
TEST_F(AppDelegateTest, theLastTextsCanBeHadAgainAndAreKeptOnRequest) {
    launch();
    m_desktop.actions.pasteLast(1, told());
    EXPECT_EQ(m_told, "there is no text yet since Nulo was started");
    dictate();
    answer(200, "one");
    dictate();
    m_desktop.delivered.clear();
    m_http.exchanges.back().answer(200, "data: [DONE]\n");
    m_queue.runPending();
    m_desktop.actions.pasteLast(1, told());
    m_desktop.actions.copyLast(1, told());
    EXPECT_EQ(m_told, "") << "another text is on its way";
    m_queue.advance(9s);
    EXPECT_EQ(m_told, "donedone");
    EXPECT_THAT(m_desktop.delivered, ElementsAre("", "paste", "one", "paste", "one"));
    m_desktop.actions.forget();
    m_desktop.actions.copyLast(1, told());
    EXPECT_THAT(m_told, HasSubstr("no text"));

    EXPECT_FALSE(fs::exists(m_folder / "state"));
    m_defaults.booleans["history"] = true;
    dictate();
    answer(200, "three");
    EXPECT_EQ(kept("texts"), 1);
    fs::remove_all(m_folder / "state");
    std::ofstream(m_folder / "state");
    dictate();
    answer(200, "four");
    EXPECT_EQ(m_desktop.delivered.back(), "paste");
    EXPECT_THAT(m_printed.lines(), Contains(HasSubstr("ERROR: The text is not in")).Times(1));
}

// Words lost, kept unasked, or sent in another way than they were meant; a notice that says less or
// more than it should.
TEST_F(AppDelegateTest, aTakeThatFoundNoServiceIsKeptOnRequestAndSentAgain) {
    const auto configure = [this](const std::string& provider, const std::string& mode) {
        AppConfig config = defaultConfig();
        config.transcriptionProvider = provider;
        config.activeMode = mode;
        config.dictionary = {mode};
        m_configFile.save(config);
        m_queue.advance(61s);  // the same failure is told once a minute
    };
    const auto isKept = [&](int status) {
        dictate();
        answer(status, "the words, quoted", false);
        EXPECT_EQ(kept("takes"),
                  m_desktop.noticeText.find("nulo --retry") == std::string::npos ? 0 : 2);
        return kept("takes") > 0;
    };
    const auto form = [this] {
        const std::string& body = m_http.exchanges.back().request.body;
        const std::string boundary = body.substr(0, body.find('\r'));
        std::string fields = body.substr(0, body.find("filename="));
        for (std::size_t at; (at = fields.find(boundary)) != std::string::npos;)
            fields.erase(at, boundary.size());
        return fields;
    };
    launch();
    EXPECT_FALSE(isKept(503));
    m_defaults.booleans["keepFailedTakes"] = true;
    configure("openai", "email");
    EXPECT_FALSE(isKept(401));
    m_desktop.actions.retry(told());
    EXPECT_EQ(m_told, "no take is kept");

    const std::tuple<std::string, std::string, int> rows[] = {{"openai", "email", 429},
                                                              {"openai", "raw-transcription", 408},
                                                              {"mistral", "spanish", 200},
                                                              {"mistral", "spanish", 500}};
    for (const auto& [provider, mode, status] : rows) {
        configure(provider, mode);
        EXPECT_TRUE(isKept(status == 200 ? 503 : status)) << status;
        EXPECT_TRUE(fs::is_empty(m_folder / "tmp/nulo"));
        const std::string sent = form();
        configure("mistral", "voice-to-text");
        m_desktop.delivered.clear();
        m_desktop.actions.retry(told());
        EXPECT_EQ(form(), sent);
        m_desktop.actions.retry(told());
        EXPECT_EQ(m_told, "a take is being sent already");
        answer(502, "the words, quoted", false);
        EXPECT_THAT(m_told, AllOf(HasSubstr("(502)"), Not(HasSubstr("quoted"))));
        EXPECT_EQ(kept("takes"), 2);

        m_desktop.actions.retry(told());
        answer(200, "words", mode == "email");
        if (mode == "spanish") {
            EXPECT_THAT(m_http.exchanges.back().request.body, HasSubstr("espagnol"));
            answer(status, "palabras");
        }
        EXPECT_EQ(m_told, "done");
        EXPECT_THAT(m_desktop.delivered, ElementsAre(status == 200 ? "palabras" : "words"));
        EXPECT_THAT(m_desktop.notices.back(),
                    HasSubstr(status == 500 ? "sans correction" : "retrouvee"));
        EXPECT_EQ(kept("takes"), 0);
    }
    EXPECT_TRUE(isKept(503));
    m_desktop.actions.retry(told());
    answer(200, " ", false);
    EXPECT_THAT(m_told, HasSubstr("nothing was recognised"));
    EXPECT_EQ(kept("takes"), 0);

    launch("{");
    m_queue.advance(61s);
    dictate();
    EXPECT_THAT(m_desktop.noticeText, AllOf(HasSubstr("service.json"), HasSubstr("--retry")));
    EXPECT_EQ(kept("takes"), 2);
    m_desktop.actions.retry(told());
    EXPECT_THAT(m_told, HasSubstr("there is no service"));
}

}  // namespace
}  // namespace nulo
