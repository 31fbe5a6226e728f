// The installed program, used as a person would.

#include <gmock/gmock.h>

#include <atomic>
#include <fstream>

#include "base/FileIO.h"
#include "rig/desktop/DesktopSession.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

using namespace testing;
namespace fs = std::filesystem;

std::string eventStream(const std::string& text) {
    return httpResponse(
        200, R"(data: {"choices":[{"delta":{"content":")" + text + "\"}}]}\n\ndata: [DONE]\n\n",
        {"Content-Type: text/event-stream"});
}

/// Two seconds of a person reading, which is as long as a take has to be.
fs::path speech() {
    return recordedSpeech().file.parent_path().parent_path() / "cards/002.wav";
}

void expectText(const DesktopSession& desktop, const std::string& expected) {
    EXPECT_TRUE(waitUntil([&] { return desktop.text() == expected; }))
        << "the window holds: " << desktop.text();
}

// Through the companion, both vendors' parts being played: transcribed and cleaned in one request,
// transcribed only, and in two requests.
TEST(Dictation, everyRoadEndsInTheFocusedWindow) {
    ScriptedHttpServer vendors([](const ReceivedRequest& request, auto& client) {
        const std::string& path = request.target;
        if (path == "/openai/audio/transcriptions")
            client.send(httpResponse(200, "euh bonjour\n", {"Content-Type: text/plain"}));
        else if (path == "/mistral/audio/transcriptions")
            client.send(httpResponse(200, R"({"text": "euh bonsoir"})",
                                     {"Content-Type: application/json"}));
        else
            client.send(eventStream("Déjà vu, " + path.substr(1, path.find('/', 1) - 1) + " ! "));
    });
    const CompanionProcess companion(
        R"({"providers": {"openai": {"apiKey": "one", "baseURL": ")" + vendors.url("/openai") +
        R"("}, "mistral": {"apiKey": "two", "baseURL": ")" + vendors.url("/mistral") + R"("}}})");
    DesktopSession desktop;
    desktop.writeServiceFile(companion.baseURL());
    desktop.writeConfig("openai", "voice-to-text");
    desktop.startTextWindow();
    desktop.startNulo();
    desktop.dictate(speech());
    expectText(desktop, "Déjà vu, openai !");
    EXPECT_EQ(desktop.clipboard(), "Déjà vu, openai !");
    desktop.writeConfig("mistral", "raw-transcription");
    desktop.dictate(speech());
    expectText(desktop, "Déjà vu, openai !euh bonsoir");
    desktop.writeConfig("mistral", "email");
    desktop.dictate(speech());
    expectText(desktop, "Déjà vu, openai !euh bonsoirDéjà vu, mistral !");

    const auto [status, report] = desktop.startNuloAgain({"--doctor"});
    EXPECT_EQ(status, 0) << report;
    EXPECT_THAT(report, AllOf(HasSubstr("Option+Space: watched by the Nulo that runs"),
                              HasSubstr("Microphone: Remapped Monitor"),
                              HasSubstr("Service: " + companion.baseURL() + ", this machine"),
                              HasSubstr("Engine: Understood offline: ")));

    const auto requests = vendors.requests();
    ASSERT_EQ(requests.size(), 5u);
    EXPECT_EQ(requests[0].header("Authorization"), "Bearer one");
    EXPECT_THAT(requests[0].body, AllOf(HasSubstr("Vocabulaire : Nulo"), HasSubstr("ftyp")));
    EXPECT_GT(requests[0].body.size(), 10000u) << "the sound is missing";
    EXPECT_THAT(requests[1].body, HasSubstr("euh bonjour"));
    EXPECT_EQ(requests[4].header("Authorization"), "Bearer two");
    EXPECT_THAT(desktop.printed(),
                Contains(MatchesRegex("Recording saved: recording_.*m4a \\([0-9]+ KB\\)")));
    EXPECT_THAT(readFile(desktop.pipelineLog(), 100'000).value_or(""),
                AllOf(HasSubstr("First token received (token #1): \"Déjà vu"),
                      HasSubstr("[URLMetrics] REUSED"), HasSubstr("TOTAL: ")));
}

// A text that arrives while the chord is held for the next take, and is lost or comes second; a tap
// that is sent. An end with the desktop, where Qt ends the process with threads at work on what
// that destroys: what was spoken stays behind, the log's lines go into files named at random.
TEST(Dictation, takesMeetAndNoneIsLeftBehind) {
    std::atomic<int> takes = 0;
    ScriptedHttpServer service([&](const ReceivedRequest& request, auto& client) {
        if (request.method == "HEAD")
            return (void)client.send(httpResponse(200, ""));
        const int take = ++takes;
        if (take == 1)
            client.stall();
        if (take == 3)
            client.waitForClientToLeave();
        client.send(eventStream(std::to_string(take)));
    });
    DesktopSession desktop;
    const auto isOpen = [&] { return desktop.soundServer().recordingCount() == 1; };
    const auto isEmpty = [&] { return fs::is_empty(desktop.recordingsFolder()); };
    desktop.writeServiceFile(service.url());
    desktop.writeConfig("openai", "voice-to-text");
    fs::create_directory(desktop.recordingsFolder());
    std::ofstream(desktop.recordingsFolder() / "recording_2025-03-14_09-05-07.m4a") << "earlier";
    desktop.startTextWindow();
    desktop.startNulo();
    EXPECT_TRUE(isEmpty());
    desktop.dictate(speech());
    ASSERT_TRUE(waitUntil([&] { return takes == 1; }));
    desktop.pressChord();
    ASSERT_TRUE(waitUntil(isOpen));
    service.release();
    desktop.soundServer().play(speech())->wait(std::chrono::seconds(60));
    desktop.releaseChord();
    expectText(desktop, "12");

    desktop.pressChord();
    ASSERT_TRUE(waitUntil(isOpen));
    desktop.releaseChord();
    EXPECT_TRUE(desktop.waitForPrinted("Recording too short"));
    EXPECT_TRUE(desktop.noKeyIsDown());
    EXPECT_TRUE(isEmpty());

    desktop.dictate(speech());
    ASSERT_TRUE(waitUntil([&] { return takes == 3; }));
    desktop.pressChord();
    ASSERT_TRUE(waitUntil(isOpen));
    desktop.xServer().kill();
    EXPECT_EQ(desktop.nulo().wait(std::chrono::seconds(20)), 1);
    EXPECT_TRUE(isEmpty());
    expectText(desktop, "12");
}

// Words that are lost with the network, or that another command than the one asked for gives back.
TEST(Dictation, wordsThatFoundNoServiceComeBack) {
    std::atomic<bool> isThere = false;
    ScriptedHttpServer service([&](const ReceivedRequest& request, auto& client) {
        client.send(request.method == "HEAD" ? httpResponse(200, "")
                    : isThere                ? httpResponse(200, "Déjà vu\n!\n")
                                             : httpResponse(503, "busy"));
    });
    DesktopSession desktop;
    using Ended = std::pair<std::optional<int>, std::string>;
    const auto nulo = [&](const std::string& command) { return desktop.startNuloAgain({command}); };
    desktop.writeServiceFile(service.url());
    desktop.writeConfig("openai", "raw-transcription");
    std::ofstream(desktop.home() / ".config/nulo/defaults.ini", std::ios::app)
        << "history=true\nkeepFailedTakes=true\n";
    EXPECT_EQ(nulo("--retry"), Ended(1, "nulo: Nulo is not running.\n"));
    desktop.startTextWindow();
    desktop.startNulo();
    EXPECT_EQ(nulo("--paste-last"),
              Ended(1, "nulo: there is no text yet since Nulo was started.\n"));
    desktop.dictate(speech());
    ASSERT_TRUE(desktop.waitForPrinted("Raw transcription failed: API error 503: busy"));
    EXPECT_TRUE(fs::is_empty(desktop.recordingsFolder()));
    isThere = true;
    EXPECT_EQ(nulo("--retry"),
              Ended(0, "The take was understood: its text is on the clipboard.\n"));
    EXPECT_EQ(desktop.clipboard(), "Déjà vu\n!");
    EXPECT_EQ(nulo("--retry"), Ended(1, "nulo: no take is kept.\n"));
    EXPECT_EQ(nulo("--paste-last"),
              Ended(0, "The text is on the clipboard, and is being pasted.\n"));
    expectText(desktop, "Déjà vu\n!");
    EXPECT_EQ(outputOf({"gdbus", "call", "--session", "--dest", "org.nulo.Nulo", "--object-path",
                        "/org/nulo/Nulo", "--method", "org.nulo.Nulo.CopyLast"},
                       {desktop.environment(), {}}),
              "()\n")
        << "a text leaves over the bus";
    EXPECT_THAT(nulo("--history").second,
                MatchesRegex("20.*:..  Transcription brute\n    Déjà vu\n    !\n"));
    EXPECT_EQ(nulo("--forget").first, 0);
    EXPECT_TRUE(fs::is_empty(desktop.home() / ".local/state/nulo/texts"));
    EXPECT_EQ(nulo("--copy-last").first, 1);
}

}  // namespace
}  // namespace nulo
