#include "app/RecordingPipeline.h"

#include <fstream>
#include <numeric>

#include "app/PipelineLog.h"
#include "base/FileIO.h"
#include "fakes/FakeHttpSession.h"
#include "fakes/PartTest.h"

namespace nulo {
namespace {

/// Writes down, in one list, what the person would notice. The focused program fetches what is
/// pasted at once, unless told otherwise.
struct RecordedDelivery final : DictationOverlay, Pasteboard, PasteKeystroke {
    using Text = std::string_view;
    explicit RecordedDelivery(const Clock& now) : clock(now) {}
    Panel panel() const override { return shown; }
    void note(Text what, Text text = {}) {
        if (onlyDeliveries && what != "clipboard " && text != "paste")
            return;
        events.append(events.empty() ? "" : ", ").append(what).append(text);
    }
    void showTranscribing() override { note("transcribing"); }
    void showStreaming(Text mode) override { note("streaming ", mode); }
    void appendStreamingText(Text text) override { note("+", text); }
    void finishStreaming() override { note("done"); }
    void showToBePasted() override { note("to be pasted"); }
    void showDebugStep(std::string text) override { note("debug ", text); }
    void updateDebugStep(std::string text) override { note("debug= ", text); }
    void clearDebugSteps() override { note("debug!"); }
    void hide() override { note(later(), "hide"); }
    void setString(Text text) override { note("clipboard ", text); }
    bool isPossible() const override { return keysCanBeSent; }
    bool holdsText() const override { return isOwner; }
    void post(Report report) override {
        note(later(), "paste");
        posted = std::move(report);
        if (!fingersAreInTheWay)
            letGo();
    }
    void letGo() {
        posted.onSending();
        if (programReads)
            onRead({});
        posted.onEnd(Success{});
    }
    /// Since the last call.
    std::string take() { return std::exchange(events, {}); }
    /// The milliseconds since `started`, when that is of interest.
    std::string later() const {
        return started ? std::to_string(wholeMilliseconds(clock.now() - *started)) + " " : "";
    }

    const Clock& clock;
    std::optional<Clock::Instant> started;
    std::string events;
    bool onlyDeliveries = false;
    Panel shown = 1;
    bool fingersAreInTheWay = false;
    bool programReads = true;
    bool keysCanBeSent = true;
    bool isOwner = true;
    Report posted;
};

class RecordingPipelineTest : public PartTest {
  protected:
    RecordingPipelineTest() { m_pipeline->setTranscriptionService(&m_service); }

    void configure(const std::string& provider, const std::string& mode, bool debug = false) {
        m_config = defaultConfig();
        m_config->transcriptionProvider = provider;
        m_config->activeMode = mode;
        m_config->debugMode = debug;
    }
    /// The take that the newest panel shows.
    void process() {
        std::ofstream(m_take) << std::string(2048, 'a');
        m_pipeline->processRecording(m_take, m_seen.shown);
        m_queue.runPending();
    }
    FakeHttp::Exchange& request(std::size_t index = 0) { return m_http.exchanges.at(index); }
    void answer(int status, std::string_view body, HttpHeaders headers = {},
                std::size_t index = 0) {
        request(index).answer(status, body, std::move(headers));
        m_queue.runPending();
    }
    static std::string event(const std::string& text) {
        return R"(data: {"choices":[{"delta":{"content":")" + text + "\"}}]}\n\n";
    }

    fs::path m_take = m_folder / "take.m4a";
    std::string m_receipts;  // lines of the log
    PipelineLog m_log{m_folder / "log", m_clock, [this](std::string_view line) {
                          if (const auto begin = line.find("Paste "); begin != line.npos)
                              m_receipts.append(line.substr(begin)).append("; ");
                      }};
    RecordedDelivery m_seen{m_clock};
    FakeHttp m_http;
    std::optional<AppConfig> m_config;
    TranscriptionService m_service{"http://127.0.0.1:1",
                                   {},
                                   {m_http.factory(), m_queue, m_clock, m_printed.print(),
                                    [this](auto line) { m_log.log(line); }}};
    std::vector<std::string> m_failures;
    int m_successes = 0;
    std::vector<NoticeAction> m_offers;
    int m_withdrawn = 0;
    std::optional<RecordingPipeline> m_pipeline{RecordingPipeline::Dependencies(
        m_queue, m_clock, m_printed.print(), m_log, m_seen, m_seen, m_seen,
        [this] { return m_config; },
        [this](const Notice& notice) { m_failures.push_back(notice.title); },
        [this] { ++m_successes; },
        [this](const Notice&, NoticeAction action) { m_offers.push_back(std::move(action)); },
        [this] { ++m_withdrawn; })};
};

// A text lost, pasted unasked or at another moment; a take left behind; a line that reads
// otherwise.
TEST_F(RecordingPipelineTest, everyRouteEndsAsItShould) {
    using Answer = std::pair<int, std::string>;
    const std::string words = event("Bon") + event("jour") + "data: [DONE]\n";
    const Answer plain{200, " euh bonjour\n"};
    const Answer busy{503, "busy"};
    const std::string shown = "transcribing, streaming Email, ";
    const std::string bonjour = "+Bon, +jour, done, clipboard Bonjour, 400 hide, 500 paste";
    const std::string spoken = "clipboard euh bonjour, ";
    const std::string dropped = "transcribing, 0 hide";
    const auto check = [&](const std::string& settings, const std::vector<Answer>& answers,
                           const std::string& events, const std::string& line) {
        m_config.reset();
        if (const auto blank = settings.find(' '); blank != std::string::npos)
            configure(settings.substr(0, blank), settings.substr(blank + 1));
        process();
        EXPECT_TRUE(fs::exists(m_take));
        m_seen.started = m_clock.now();
        for (const auto& [status, body] : answers) {
            const HttpHeaders times = {{"X-Transcription-Ms", "850"}};
            answer(status, body, status == 200 ? times : HttpHeaders{},
                   m_http.exchanges.size() - 1);
        }
        EXPECT_FALSE(fs::exists(m_take));
        m_queue.advance(10s);
        EXPECT_EQ(m_seen.take(), events) << line;
        EXPECT_THAT(m_printed.lines(), Contains(line));
    };
    check("mistral raw-transcription", {plain}, "transcribing, " + spoken + "0 hide, 100 paste",
          "Raw transcription mode — text copied: euh bonjour");
    check("openai raw-transcription", {{200, "  "}}, dropped, "Transcription returned empty text.");
    check("openai raw-transcription", {busy}, dropped,
          "Raw transcription failed: API error 503: busy");
    check("openai email", {{200, words}}, shown + bonjour,
          "Combined mode — cleaned text copied: Bonjour");
    EXPECT_THAT(request(3).request.body, HasSubstr(emailMode().prompt));
    check("openai email", {busy}, "transcribing, done, 400 hide, 500 paste",
          "Combined mode failed: API error 503: busy");
    check("mistral email", {plain, {200, words}}, shown + bonjour, "Cleaned text copied: Bonjour");
    check("mistral email", {plain, busy}, shown + "done, " + spoken + "400 hide, 500 paste",
          "Cleanup failed (API error 503: busy), raw text copied.");
    check("mistral email", {{200, "  "}}, dropped, "Transcription returned empty text.");
    check("mistral email", {busy}, dropped, "Transcription failed: API error 503: busy");
    check("unreadable", {plain}, "transcribing, " + spoken + "0 hide, 100 paste",
          "Raw transcription: euh bonjour");
    m_seen.keysCanBeSent = false;
    check("mistral email", {plain, busy},
          shown + "done, " + spoken + "to be pasted, 2000 hide, 2100 paste",
          "Cleanup failed (API error 503: busy), raw text copied.");
    check("openai email", {busy}, "transcribing, done, 400 hide, 500 paste",
          "Combined mode failed: API error 503: busy");
    EXPECT_EQ(m_successes, 3) << "the failures stay in the tray";
    EXPECT_THAT(
        m_failures,
        ElementsAre("Rien n'a ete reconnu", "La dictee a echoue", "La dictee a echoue",
                    "Texte colle sans correction", "Rien n'a ete reconnu", "La dictee a echoue",
                    "Reglages illisibles", "Texte colle sans correction", "La dictee a echoue"));
}

TEST_F(RecordingPipelineTest, debugModeShowsEachStepAndHoldsTheSummary) {
    configure("openai", "voice-to-text", true);
    process();
    m_clock.advance(1s);
    request().respond(200, {{"X-Transcription-Ms", "850"}});
    m_queue.advance(120ms);
    request().data(event("Bon"));
    m_queue.advance(30ms);
    request().data("data: [DONE]\n");
    m_queue.runPending();
    const std::string summary =
        "Upload 150ms | Transcription 850ms | TTFT 120ms | Cleanup 30ms | Paste 0ms | Total 1150ms";
    EXPECT_EQ(m_seen.take(),
              "transcribing, debug Transcription..., streaming Voice to Text, "
              "debug Up 150ms | Trans 850ms, debug TTFT 120ms, +Bon, done, "
              "debug= Cleanup 30ms, clipboard Bon, debug!, debug " +
                  summary);
    m_queue.advance(2.99s);
    EXPECT_EQ(m_seen.take(), "");
    m_queue.advance(0.2s);
    EXPECT_EQ(m_seen.take(), "hide, paste");
    for (const char* absurd : {"-9223372036854775808", "9223372036854775807"}) {
        process();
        answer(200, "", {{"X-Transcription-Ms", absurd}}, m_http.exchanges.size() - 1);
    }
    EXPECT_THAT(m_printed.lines(), Contains(HasSubstr("Upload: 0ms, Transcription: 922337203685")));
}

// A text that overtakes the one before it on the clipboard: that one is lost, this one pasted
// twice.
TEST_F(RecordingPipelineTest, textsThatMeetArePastedOneByOne) {
    configure("openai", "voice-to-text");
    const auto arrives = [&](const std::string& text) {
        process();
        answer(200, event(text) + "data: [DONE]\n", {}, m_http.exchanges.size() - 1);
    };
    m_seen.onlyDeliveries = true;
    m_seen.fingersAreInTheWay = true;
    arrives("one");
    m_queue.advance(0.2s);
    arrives("two");
    m_queue.advance(10s);
    m_seen.onRead({});  // a clipboard manager, before any key was sent
    m_queue.runPending();
    EXPECT_EQ(m_seen.take(), "clipboard one, paste");
    m_seen.fingersAreInTheWay = false;
    m_seen.programReads = false;
    m_seen.letGo();
    m_queue.advance(0.9s);
    EXPECT_EQ(m_seen.take(), "") << "the program has not fetched the first one yet";
    m_seen.onRead({});
    m_queue.runPending();
    EXPECT_EQ(m_seen.take(), "clipboard two");
    m_queue.advance(0.51s);
    arrives("three");
    EXPECT_EQ(m_seen.take(), "paste");
    m_queue.advance(1s);  // no program takes it
    EXPECT_EQ(m_seen.take(), "clipboard three");

    m_seen.fingersAreInTheWay = true;
    m_queue.advance(1s);
    arrives("four");
    m_seen.posted.onEnd(Error{"no window has the keyboard focus"});
    m_queue.runPending();
    EXPECT_EQ(m_seen.take(), "paste, clipboard four");
    EXPECT_THAT(m_failures, ElementsAre("Texte non colle"));
    EXPECT_THAT(m_printed.lines(), Contains("Could not paste: no window has the keyboard focus"));
}

// A text that is lost in silence, or said to be lost where it arrived or where nobody can tell; a
// clipboard manager taken for the program; a button that pastes another text.
TEST_F(RecordingPipelineTest, tellsWhetherTheTextArrived) {
    constexpr PasteboardReader manager{.program = 7};
    constexpr PasteboardReader editor{.program = 8, .hasFocus = true};
    configure("openai", "voice-to-text");
    m_seen.onlyDeliveries = true;
    m_seen.programReads = false;
    const auto arrives = [&](const std::string& text, int status = 200) {
        process();
        answer(status, event(text) + "data: [DONE]\n", {}, m_http.exchanges.size() - 1);
    };
    const auto asks = [&](const PasteboardReader& reader) {
        m_seen.onRead(reader);
        m_queue.runPending();
        return std::exchange(m_receipts, {});
    };
    const auto after = [&](MainQueue::Delay time) {
        m_queue.advance(time);
        return std::exchange(m_receipts, {});
    };
    const auto inOrder = [](std::initializer_list<std::string> lines) {
        return std::accumulate(lines.begin(), lines.end(), std::string());
    };
    arrives("one");
    EXPECT_EQ(inOrder({asks(editor), asks(manager), after(501ms), asks(manager), after(20.5ms)}),
              "");
    EXPECT_EQ(asks(editor), "Paste read after 21 ms; ");
    EXPECT_EQ(inOrder({asks(editor), after(2s)}), "");
    arrives("two");
    EXPECT_EQ(inOrder({after(501ms), asks(manager), after(1498ms)}), "");
    EXPECT_EQ(after(2ms), "Paste not read; ");
    ASSERT_EQ(m_offers.size(), 1u);
    EXPECT_EQ(inOrder({asks(manager), after(499.5ms), asks({.program = 9})}),
              "Paste read after 2000 ms; ");
    EXPECT_EQ(m_withdrawn, 1);

    m_seen.take();
    m_offers[0].run();
    EXPECT_EQ(after(101ms), "");
    EXPECT_EQ(m_seen.take(), "clipboard two, paste");
    arrives("three");
    m_seen.isOwner = false;
    EXPECT_EQ(after(1s), "Paste not read before the next text; ");
    EXPECT_EQ(after(2s), "Paste not seen: the clipboard has another owner; ");
    EXPECT_EQ(m_offers.size(), 2u);
    arrives("");
    EXPECT_EQ(inOrder({after(2s), asks(editor)}), "");
    arrives("refused", 500);
    EXPECT_EQ(inOrder({after(2s), asks(editor)}), "")
        << "what was copied before is nobody's dictation";
    EXPECT_EQ(m_withdrawn, 1);
    EXPECT_EQ(m_offers.size(), 2u);
}

// The panel of the take that is being recorded taken away by an earlier one, or by a short tap.
TEST_F(RecordingPipelineTest, everyRunKeepsToItsOwnPanel) {
    configure("openai", "voice-to-text", true);
    process();
    m_seen.take();
    ++m_seen.shown;
    m_pipeline->processRecording(std::nullopt, 1);
    m_pipeline->processRecording(std::nullopt, 0);
    answer(200, event("one") + "data: [DONE]\n", {{"X-Transcription-Ms", "8"}});
    m_queue.advance(10s);
    EXPECT_EQ(m_seen.take(), "clipboard one, paste");
    EXPECT_EQ(m_successes, 1);
    m_pipeline->processRecording(std::nullopt, 2);
    EXPECT_EQ(m_seen.take(), "hide");
}

TEST_F(RecordingPipelineTest, lateAnswersFindNobodyAtHome) {
    for (const char* provider : {"openai", "mistral"}) {
        configure(provider, "email");
        process();
    }
    m_seen.take();
    request(0).answer(200, event("x") + "data: [DONE]\n");
    request(1).answer(200, "x");
    m_pipeline->cancelAll();
    EXPECT_FALSE(fs::exists(m_take));
    m_pipeline.reset();
    m_queue.advance(10s);
    EXPECT_EQ(m_seen.take(), "");
}

using PipelineLogTest = PartTest;

TEST_F(PipelineLogTest, writesWholeSessionsAndEchoesTimedLines) {
    setenv("TZ", "UTC", 1);
    m_clock.setWallTime(Clock::WallTime(14h + 2min + 11s + 532ms));
    const fs::path file = m_folder / "Library/Logs/nulo/pipeline.log";
    PipelineLog log(file.parent_path(), m_clock, m_printed.print());
    log.log("outside");
    std::ofstream(m_folder / "take.m4a") << std::string(4812, 'x');
    log.startSession(m_folder / "take.m4a");
    m_clock.advance(572ms);
    log.log("processRecording() started");
    m_clock.advance(100000s);
    log.log("late");
    log.endSession();
    log.startSession(m_folder / "gone.m4a");

    const std::string rule = std::string(70, '=') + "\n";
    const std::string lines[] = {"[14:02:11.532] +    0ms  outside",
                                 "[14:02:12.104] +  572ms  processRecording() started",
                                 "[17:48:52.104] +100000572ms  late"};
    EXPECT_EQ(readFile(file, 10'000),
              lines[0] + "\n\n" + rule +
                  "SESSION #1 — 14:02:11.532\nAudio: take.m4a (4812 bytes, 4KB)\n" + lines[1] +
                  "\n" + lines[2] + "\nTOTAL: 100000572ms\n" + rule + "\n" + rule +
                  "SESSION #2 — 17:48:52.104\nAudio: gone.m4a (0 bytes, 0KB)\n");
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600));
    PipelineLog("/dev/null/nulo", m_clock, m_printed.print()).log("no file");
    const std::string echo = "[nulo-log] ";
    EXPECT_THAT(m_printed.lines(), ElementsAre(echo + lines[0], echo + lines[1], echo + lines[2],
                                               EndsWith("no file")));
}

}  // namespace
}  // namespace nulo
