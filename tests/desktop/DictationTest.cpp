// The installed program, used as a person would, against a service whose answers are scripted.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <regex>
#include <sstream>

#include "config/PromptMode.h"
#include "rig/desktop/DesktopSession.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
namespace fs = std::filesystem;

struct FormField {
    std::string name, filename, type, value;
};

/// Reads a form the way a server does: by the boundary that the header names.
std::vector<FormField> formFields(const ReceivedRequest& request) {
    const std::string type = request.header("Content-Type").value_or("");
    const std::string mark = "boundary=";
    const std::string delimiter = "--" + type.substr(type.find(mark) + mark.size());
    std::vector<FormField> fields;
    std::size_t at = request.body.find(delimiter);
    while (at != std::string::npos) {
        at += delimiter.size() + 2;
        const std::size_t next = request.body.find(delimiter, at);
        if (next == std::string::npos)
            break;
        const std::string part = request.body.substr(at, next - at - 2);
        const std::string head = part.substr(0, part.find("\r\n\r\n"));
        FormField field;
        std::smatch match;
        if (std::regex_search(head, match, std::regex("[; ]name=\"([^\"]*)\"")))
            field.name = match[1];
        if (std::regex_search(head, match, std::regex("filename=\"([^\"]*)\"")))
            field.filename = match[1];
        if (std::regex_search(head, match, std::regex("Content-Type: (.*)")))
            field.type = match[1];
        field.value = part.substr(head.size() + 4);
        fields.push_back(field);
        at = next;
    }
    return fields;
}

std::vector<std::string> names(const std::vector<FormField>& fields) {
    std::vector<std::string> all;
    for (const FormField& field : fields)
        all.push_back(field.name);
    return all;
}

std::string value(const std::vector<FormField>& fields, const std::string& name) {
    for (const FormField& field : fields)
        if (field.name == name)
            return field.value;
    return "(missing)";
}

std::string eventStream(const std::vector<std::string>& fragments) {
    std::string body;
    for (const std::string& fragment : fragments)
        body += R"(data: {"choices":[{"delta":{"content":")" + fragment + "\"}}]}\n\n";
    return body + "data: [DONE]\n\n";
}

std::string contentOf(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

/// One desktop for all tests here: starting it is most of the work.
class DictationTest : public testing::Test {
  protected:
    struct Shared {
        ScriptedHttpServer service{
            [this](const ReceivedRequest& request, ScriptedHttpServer::Connection& client) {
                std::function<void(const ReceivedRequest&, ScriptedHttpServer::Connection&)> answer;
                {
                    const std::lock_guard lock(mutex);
                    if (request.target != "/api/version")
                        requests.push_back(request);
                    answer = handler;
                }
                if (request.target == "/api/version" || !answer)
                    client.send(httpResponse(200, ""));
                else
                    answer(request, client);
            }};
        DesktopSession desktop;
        std::mutex mutex;
        std::vector<ReceivedRequest> requests;
        ScriptedHttpServer::Handler handler;
    };

    static void SetUpTestSuite() {
        s_shared = new Shared;
        s_shared->desktop.writeServiceFile(s_shared->service.url(), "t0ken");
        s_shared->desktop.startTextWindow();
        s_shared->desktop.startNulo();
    }
    static void TearDownTestSuite() {
        delete s_shared;
        s_shared = nullptr;
    }

    void SetUp() override {
        m_printedBefore = desktop().printed().size();
        m_textBefore = desktop().text();
        const std::lock_guard lock(s_shared->mutex);
        s_shared->requests.clear();
    }
    void TearDown() override {
        EXPECT_TRUE(desktop().noKeyIsDown());
        EXPECT_TRUE(desktop().nulo().isRunning());
        EXPECT_TRUE(fs::is_empty(desktop().recordingsFolder())) << "a take was left behind";
    }

    DesktopSession& desktop() { return s_shared->desktop; }
    void answerWith(ScriptedHttpServer::Handler handler) {
        const std::lock_guard lock(s_shared->mutex);
        s_shared->handler = std::move(handler);
    }
    void answerWith(std::string response) {
        answerWith([response](const auto&, auto& client) { client.send(response); });
    }
    std::vector<ReceivedRequest> requests() {
        const std::lock_guard lock(s_shared->mutex);
        return s_shared->requests;
    }
    void dictate() {
        // Three seconds of a person reading.
        desktop().dictate(recordedSpeech().file.parent_path() /
                          "sense_and_sensibility_01_austen_64kb-0880.wav");
    }
    /// Printed since the test began.
    std::vector<std::string> printed() {
        auto lines = desktop().printed();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(m_printedBefore));
        return lines;
    }
    bool waitForPrinted(const std::string& part) {
        return waitUntil([&] {
            for (const std::string& line : printed())
                if (line.find(part) != std::string::npos)
                    return true;
            return false;
        });
    }
    void expectPasted(const std::string& text) {
        EXPECT_TRUE(waitUntil([&] { return desktop().text() == m_textBefore + text; }))
            << "the window holds: " << desktop().text();
        EXPECT_EQ(desktop().clipboard(), text);
    }

    static Shared* s_shared;
    std::size_t m_printedBefore = 0;
    std::string m_textBefore;
};

DictationTest::Shared* DictationTest::s_shared = nullptr;

TEST_F(DictationTest, combinedRouteStreamsIntoTheFocusedWindow) {
    desktop().writeConfig("openai", "voice-to-text");
    answerWith(httpResponse(
        200, eventStream({"Déjà", " vu", " !"}),
        {"Content-Type: text/event-stream", "X-Transcription-Ms: 12", "X-Upload-Ms: 3"}));
    dictate();
    expectPasted("Déjà vu !");

    ASSERT_EQ(requests().size(), 1u);
    const ReceivedRequest request = requests()[0];
    EXPECT_EQ(request.target, "/api/transcribe");
    EXPECT_EQ(request.header("Authorization"), "Bearer t0ken");
    const auto fields = formFields(request);
    EXPECT_THAT(names(fields), ElementsAre("provider", "model", "response_format", "prompt",
                                           "cleanup_prompt", "cleanup_model", "file"));
    EXPECT_EQ(value(fields, "provider"), "openai");
    EXPECT_EQ(value(fields, "prompt"), "Vocabulaire : Nulo");
    EXPECT_EQ(value(fields, "cleanup_prompt"), voiceToTextMode().prompt);
    EXPECT_EQ(value(fields, "cleanup_model"), "openai");
    EXPECT_THAT(fields.back().filename,
                MatchesRegex("recording_[0-9-]{10}_[0-9]{2}-[0-9]{2}-[0-9]{2}.m4a"));
    EXPECT_EQ(fields.back().type, "audio/mp4");
    EXPECT_EQ(fields.back().value.substr(4, 4), "ftyp");
    EXPECT_GT(fields.back().value.size(), 10000u);

    EXPECT_THAT(printed(),
                AllOf(Contains(MatchesRegex("Recording started \\(AAC\\): recording_.*m4a")),
                      Contains(MatchesRegex("Recording saved: recording_.*m4a \\([0-9]+ KB\\)")),
                      Contains(HasSubstr("X-Transcription-Ms header: 12ms")),
                      Contains("Combined mode — cleaned text copied: Déjà vu !")));
    EXPECT_THAT(contentOf(desktop().pipelineLog()),
                AllOf(HasSubstr("First token received (token #1): \"Déjà\""),
                      HasSubstr("SSE [DONE] received after"), HasSubstr("[URLMetrics] REUSED"),
                      HasSubstr("Clipboard: 9 chars copied"), HasSubstr("TOTAL: ")));
}

TEST_F(DictationTest, rawRouteDeliversThePlainTranscript) {
    desktop().writeConfig("openai", "raw-transcription");
    answerWith(httpResponse(200, "  euh bonjour \n"));
    dictate();
    expectPasted("euh bonjour");
    EXPECT_THAT(names(formFields(requests().at(0))),
                ElementsAre("provider", "model", "response_format", "prompt", "file"));
    EXPECT_THAT(printed(), Contains("Raw transcription mode — text copied: euh bonjour"));
}

TEST_F(DictationTest, twoStageRouteCleansUpInDebugMode) {
    desktop().writeConfig("mistral", "email", true);
    answerWith([](const ReceivedRequest& request, ScriptedHttpServer::Connection& client) {
        client.send(request.target == "/api/chat"
                        ? httpResponse(200, eventStream({"Bonjour,", " merci."}))
                        : httpResponse(200, "merci"));
    });
    dictate();
    expectPasted("Bonjour, merci.");
    ASSERT_EQ(requests().size(), 2u);
    EXPECT_THAT(names(formFields(requests()[0])), ElementsAre("provider", "file"));
    EXPECT_EQ(requests()[1].target, "/api/chat");
    EXPECT_EQ(requests()[1].header("Authorization"), "Bearer t0ken");
    EXPECT_THAT(requests()[1].body,
                AllOf(HasSubstr("mistral-small-latest"), HasSubstr(R"("content":"merci")")));
    EXPECT_THAT(
        printed(),
        AllOf(
            Contains("Raw transcription: merci"), Contains("Cleaned text copied: Bonjour, merci."),
            Contains(
                MatchesRegex("\\[DEBUG\\] Audio file: [0-9]+KB, provider: Voxtral \\(Mistral\\)")),
            Contains(MatchesRegex("\\[DEBUG\\] Transcription [0-9]+ms \\| Cleanup [0-9]+ms "
                                  "\\| Paste [0-9]+ms \\| Total [0-9]+ms"))));
}

TEST_F(DictationTest, combinedRouteInDebugMode) {
    desktop().writeConfig("openai", "email", true);
    answerWith(httpResponse(200, eventStream({"Oui."}), {"X-Transcription-Ms: 5"}));
    dictate();
    expectPasted("Oui.");
    EXPECT_THAT(printed(),
                AllOf(Contains(MatchesRegex("\\[DEBUG\\] Time to first token: [0-9]+ms")),
                      Contains(MatchesRegex("\\[DEBUG\\] Upload [0-9]+ms \\| Transcription 5ms \\| "
                                            "TTFT .* Total [0-9]+ms"))));
}

TEST_F(DictationTest, serviceFailuresAreSaidAndNothingNewIsPasted) {
    desktop().writeConfig("mistral", "email");
    answerWith(httpResponse(401, "unknown token"));
    dictate();
    EXPECT_TRUE(waitForPrinted("Transcription failed: API error 401: unknown token"));
    answerWith([](const auto&, auto& client) { client.reset(); });
    dictate();
    EXPECT_TRUE(waitForPrinted("Transcription failed: The connection to"));
    EXPECT_TRUE(waitUntil([&] { return fs::is_empty(desktop().recordingsFolder()); }));
    EXPECT_EQ(desktop().text(), m_textBefore);
}

TEST_F(DictationTest, aStreamCutBeforeItsEndIsAFailure) {
    desktop().writeConfig("openai", "voice-to-text");
    answerWith([](const auto&, auto& client) {
        client.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
        client.send(httpChunk(eventStream({"half"}).substr(0, 50)));
        client.reset();
    });
    dictate();
    EXPECT_TRUE(waitForPrinted("Combined mode failed: The connection to"));
    // The paste key is still sent: it repeats what the clipboard held before.
    EXPECT_TRUE(
        waitUntil([&] { return desktop().text() != m_textBefore || m_textBefore.empty(); }));
}

TEST_F(DictationTest, aTapOnTheChordPastesNothing) {
    desktop().writeConfig("openai", "raw-transcription");
    answerWith(httpResponse(200, ""));
    desktop().pressChord();
    desktop().releaseChord();
    desktop().pressChord();
    EXPECT_TRUE(waitForPrinted("Recording started"));
    desktop().releaseChord();
    EXPECT_TRUE(waitForPrinted("Recording too short"));
    EXPECT_TRUE(fs::is_empty(desktop().recordingsFolder()));
    EXPECT_THAT(requests(), IsEmpty());
    EXPECT_EQ(desktop().text(), m_textBefore);
}

TEST_F(DictationTest, endsCleanlyWhileTheUserIsSpeaking) {
    desktop().pressChord();
    EXPECT_TRUE(waitForPrinted("Recording started"));
    EXPECT_EQ(desktop().stopNulo(), 0);
    desktop().releaseChord();
    EXPECT_THAT(requests(), IsEmpty()) << "the take was processed";
    desktop().startNulo();
}

TEST_F(DictationTest, secondDictationWhileTheFirstIsStillOnItsWay) {
    desktop().writeConfig("openai", "voice-to-text");
    std::atomic<int> count = 0;
    answerWith([&](const auto&, auto& client) {
        const bool first = ++count == 1;
        if (first)
            client.stall();
        client.send(httpResponse(200, eventStream({first ? "one" : "two"})));
    });
    dictate();
    EXPECT_TRUE(waitUntil([&] { return count == 1; }));
    dictate();
    EXPECT_TRUE(waitUntil([&] { return desktop().text() == m_textBefore + "two"; }));
    s_shared->service.release();
    EXPECT_TRUE(waitUntil([&] { return desktop().text() == m_textBefore + "twoone"; }))
        << desktop().text();
}

}  // namespace
}  // namespace nulo
