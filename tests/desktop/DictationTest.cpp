// The installed program, used as a person would, against a service whose answers are scripted.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "base/FileIO.h"
#include "rig/desktop/DesktopSession.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::MatchesRegex;
namespace fs = std::filesystem;

std::string eventStream(const std::string& text) {
    return R"(data: {"choices":[{"delta":{"content":")" + text + "\"}}]}\n\ndata: [DONE]\n\n";
}

class DictationTest : public testing::Test {
  protected:
    DictationTest() {
        m_desktop.writeServiceFile(m_service.url(), "t0ken");
        m_desktop.startTextWindow();
        m_desktop.startNulo();
    }
    void TearDown() override {
        EXPECT_TRUE(m_desktop.noKeyIsDown());
        EXPECT_TRUE(fs::is_empty(m_desktop.recordingsFolder())) << "a take was left behind";
    }

    void answerWith(ScriptedHttpServer::Handler handler) {
        const std::lock_guard lock(m_mutex);
        m_handler = std::move(handler);
    }
    void answerWith(std::string response) {
        answerWith([response](const auto&, auto& client) { client.send(response); });
    }
    /// Without those that warm the connection up.
    std::vector<ReceivedRequest> requests() {
        auto requests = m_service.requests();
        std::erase_if(requests, [](const auto& one) { return one.method == "HEAD"; });
        return requests;
    }
    void dictate() {
        // Three seconds of a person reading.
        m_desktop.dictate(recordedSpeech().file.parent_path() /
                          "sense_and_sensibility_01_austen_64kb-0880.wav");
    }
    void expectPasted(const std::string& text) {
        m_expected += text;
        EXPECT_TRUE(waitUntil([&] { return m_desktop.text() == m_expected; }))
            << "the window holds: " << m_desktop.text();
    }

    DesktopSession m_desktop;
    std::mutex m_mutex;
    ScriptedHttpServer::Handler m_handler;
    std::string m_expected;
    ScriptedHttpServer m_service{
        [this](const ReceivedRequest& request, ScriptedHttpServer::Connection& client) {
            std::unique_lock lock(m_mutex);
            const auto answer = m_handler;
            lock.unlock();
            if (request.method == "HEAD" || !answer)
                client.send(httpResponse(200, ""));
            else
                answer(request, client);
        }};
};

TEST_F(DictationTest, everyRouteEndsInTheFocusedWindow) {
    m_desktop.writeConfig("openai", "voice-to-text");
    answerWith(httpResponse(200, eventStream("Déjà vu !"), {"X-Transcription-Ms: 12"}));
    dictate();
    expectPasted("Déjà vu !");
    EXPECT_EQ(m_desktop.clipboard(), "Déjà vu !");
    EXPECT_EQ(requests().at(0).target, "/api/transcribe");
    EXPECT_EQ(requests()[0].header("Authorization"), "Bearer t0ken");
    EXPECT_THAT(requests()[0].body, AllOf(HasSubstr("Vocabulaire : Nulo"), HasSubstr("ftyp")));
    EXPECT_GT(requests()[0].body.size(), 10000u) << "the sound is missing";
    EXPECT_THAT(m_desktop.printed(),
                AllOf(Contains(MatchesRegex("Recording saved: recording_.*m4a \\([0-9]+ KB\\)")),
                      Contains("Combined mode — cleaned text copied: Déjà vu !")));
    EXPECT_THAT(readFile(m_desktop.pipelineLog(), 100'000).value_or(""),
                AllOf(HasSubstr("First token received (token #1): \"Déjà vu !\""),
                      HasSubstr("[URLMetrics] REUSED"), HasSubstr("TOTAL: ")));

    m_desktop.writeConfig("openai", "raw-transcription");
    answerWith(httpResponse(200, "  euh bonjour \n"));
    dictate();
    expectPasted("euh bonjour");

    m_desktop.writeConfig("mistral", "email");
    answerWith([](const ReceivedRequest& request, ScriptedHttpServer::Connection& client) {
        client.send(httpResponse(
            200, request.target == "/api/chat" ? eventStream("Bonjour, merci.") : "merci"));
    });
    dictate();
    expectPasted("Bonjour, merci.");
    EXPECT_THAT(requests().at(3).body, HasSubstr(R"("content":"merci")"));

    answerWith([](const auto&, auto& client) { client.reset(); });
    dictate();
    EXPECT_TRUE(m_desktop.waitForPrinted("Transcription failed: The connection to"));
    expectPasted("");
}

// A tap that is sent or leaves its keys or its take behind; an end that waits for the speaker.
TEST_F(DictationTest, aTapAndAnEndWhileSpeakingPasteNothing) {
    m_desktop.pressChord();
    m_desktop.releaseChord();
    m_desktop.pressChord();
    EXPECT_TRUE(m_desktop.waitForPrinted("Recording started"));
    m_desktop.releaseChord();
    EXPECT_TRUE(m_desktop.waitForPrinted("Recording too short"));
    m_desktop.pressChord();
    EXPECT_EQ(m_desktop.stopNulo(), 0);
    m_desktop.releaseChord();
    EXPECT_TRUE(requests().empty());
    expectPasted("");
}

// The text of one take that arrives while the chord is held for the next one.
TEST_F(DictationTest, aTextThatArrivesDuringTheNextTakeIsPastedFirst) {
    m_desktop.writeConfig("openai", "voice-to-text");
    std::atomic<int> count = 0;
    answerWith([&](const auto&, auto& client) {
        const bool first = ++count == 1;
        if (first)
            client.stall();
        client.send(httpResponse(200, eventStream(first ? "one" : "two")));
    });
    dictate();
    ASSERT_TRUE(waitUntil([&] { return count == 1; }));
    std::thread arrival([&] {
        EXPECT_TRUE(waitUntil([&] {
            const auto lines = m_desktop.printed();
            return std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
                       return line.starts_with("Recording started");
                   }) == 2;
        }));
        m_service.release();
    });
    dictate();
    arrival.join();
    expectPasted("onetwo");
}

}  // namespace
}  // namespace nulo
