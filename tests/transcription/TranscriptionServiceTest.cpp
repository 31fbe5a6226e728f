#include "transcription/TranscriptionService.h"

#include <gmock/gmock.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>

#include "Told.h"
#include "base/Text.h"
#include "fakes/FakeHttpSession.h"
#include "fakes/FakeMainQueue.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using enum TranscriptionProvider;

const std::string sound("\r\n--sound\0\xFF", 11);
const std::string answerStream =
    "data: {\"choices\":[{\"delta\":{\"content\":\"Bon\"}}]}\ndata: [DONE]\n";

// What a server says must not drive the terminal.
const Print visibly = [](std::string_view line) { EXPECT_EQ(visible(line), line); };

class TranscriptionServiceTest : public testing::Test {
  protected:
    std::unique_ptr<TranscriptionService> makeService(std::string baseURL) {
        return std::make_unique<TranscriptionService>(
            std::move(baseURL), HttpHeaders{{"Authorization", "Bearer key"}},
            TranscriptionService::Dependencies{m_http.factory(), m_mainQueue, m_clock, visibly,
                                               visibly,
                                               [this] { return "U" + std::to_string(++m_uuids); }});
    }
    FakeHttp::Exchange& transcribe(const std::filesystem::path& name = "x.m4a",
                                   TranscriptionProvider provider = openai,
                                   const std::optional<std::string>& prompt = {}) {
        std::ofstream(m_folder / name, std::ios::binary) << sound;
        m_service->transcribe(m_folder / name, provider, prompt, m_told.completion());
        return m_http.exchanges.back();
    }
    void clean(TranscriptionProvider provider, const std::optional<std::string>& prompt = {},
               const std::filesystem::path& name = "x.m4a") {
        m_service->transcribeAndClean(m_folder / name, provider, prompt, "Nettoie", "mistral",
                                      m_told.time(), m_told.token(), m_told.completion());
    }
    void chat(const std::string& raw = "x", const char* model = "openai") {
        m_service->cleanupStreaming(raw, "Nettoie", model, m_told.token(), m_told.completion());
    }
    /// The names of the last request's form fields, in order.
    std::string fields() const {
        const std::string& body = m_http.exchanges.back().request.body;
        const std::regex name("form-data; name=\"(\\w+)\"");
        std::string names;
        for (std::sregex_iterator one(body.begin(), body.end(), name), end; one != end; ++one)
            names += one->str(1) + " ";
        return names;
    }

    FakeHttp m_http;
    FakeClock m_clock;
    FakeMainQueue m_mainQueue{&m_clock};
    TemporaryFolder m_folder;
    Told m_told;
    int m_uuids = 0;
    std::unique_ptr<TranscriptionService> m_service = makeService("https://speech.example");
};

// Catches any byte out of place in the form, a boundary used twice, and headers in the wrong order.
TEST_F(TranscriptionServiceTest, sendsTheFormByteForByte) {
    const HttpRequest request = transcribe("take \"1\".M4A", openai, "Nulo, déjà").request;
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.url, "https://speech.example/api/transcribe");
    EXPECT_EQ(request.idleTimeout, std::chrono::seconds(60));
    EXPECT_EQ(request.headers, (HttpHeaders{{"Authorization", "Bearer key"},
                                            {"Content-Type", "multipart/form-data; boundary=U1"}}));
    EXPECT_EQ(request.body,
              "--U1\r\nContent-Disposition: form-data; name=\"provider\"\r\n\r\nopenai\r\n"
              "--U1\r\nContent-Disposition: form-data; name=\"model\"\r\n\r\n"
              "gpt-4o-mini-transcribe\r\n"
              "--U1\r\nContent-Disposition: form-data; name=\"response_format\"\r\n\r\ntext\r\n"
              "--U1\r\nContent-Disposition: form-data; name=\"prompt\"\r\n\r\nNulo, déjà\r\n"
              "--U1\r\nContent-Disposition: form-data; name=\"file\"; filename=\"take \"1\".M4A\""
              "\r\nContent-Type: audio/mp4\r\n\r\n" +
                  sound + "\r\n--U1--\r\n");
    for (const char* name : {"x.wav", "x.caf", "x", ".m4a"})
        EXPECT_THAT(transcribe(name).request.body, HasSubstr("Content-Type: audio/wav\r\n\r\n"));
    EXPECT_THAT(m_http.exchanges.back().request.body, testing::EndsWith("\r\n--U5--\r\n"));
}

// Catches the vocabulary sent where it must not be, an empty one left out, and a changed order.
TEST_F(TranscriptionServiceTest, choosesTheFieldsByProviderAndMode) {
    transcribe();
    EXPECT_EQ(fields(), "provider model response_format file ");
    transcribe("x.m4a", mistral, "words");
    EXPECT_EQ(fields(), "provider file ");
    clean(openai, "");
    EXPECT_EQ(fields(), "provider model response_format prompt cleanup_prompt cleanup_model file ");
    clean(mistral, "words");
    EXPECT_EQ(fields(), "provider cleanup_prompt cleanup_model file ");
    EXPECT_THAT(m_http.exchanges.back().request.body,
                HasSubstr("name=\"cleanup_prompt\"\r\n\r\nNettoie\r\n"));
}

// Catches lenient statuses, wrong trimming, lost or retried requests, and memory that
// an answer fills without end; a request sent without its audio.
TEST_F(TranscriptionServiceTest, endsAPlainRequestInTextOrFailure) {
    const std::string endless(9 << 20, 'x');
    const std::tuple<int, std::string, std::string> answers[] = {
        {200, "  hello\n", "text hello"},
        {200, "\xFF", "text "},
        {201, " \x1B[2J ", "failure API error 201:  ␛[2J "},
        {500, "", "failure API error 500: "},
        {500, "\xFF", "failure API error 500: Unknown error"},
        {200, endless,
         "failure The speech service sent a text of more than 8 MB; the rest was not read"},
        {404, endless, "failure API error 404: " + std::string(64 * 1024, 'x')},
    };
    for (const auto& [status, body, call] : answers) {
        const auto& exchange = transcribe("x.m4a", status == 200 ? mistral : openai);
        exchange.respond(status);
        const std::size_t piece = body.size() < 100 ? 1 : 10'000;
        for (std::size_t at = 0; at < body.size() && exchange.data(body.substr(at, piece));)
            at += piece;
        exchange.complete();
        EXPECT_EQ(m_told.calls.back(), call);
    }
    transcribe().respond(200);
    m_http.exchanges.back().complete(Error{"The connection was lost"});
    EXPECT_EQ(m_told.calls.back(), "failure The connection was lost");
    transcribe().complete();
    EXPECT_EQ(m_told.calls.back(), "failure Invalid server response");
    m_service->transcribe(m_folder.path(), openai, {}, m_told.completion());
    EXPECT_EQ(m_told.calls.back(), "failure Failed to read audio file");
    clean(openai, {}, "absent.m4a");
    EXPECT_EQ(m_told.calls.back(), "failure Failed to read audio file");
    EXPECT_EQ(m_told.calls.size(), 11u);
    EXPECT_EQ(m_http.exchanges.size(), 9u);
}

// Catches a handler registered after the start, which loses an answer that comes at once, and
// callbacks that need the service: it goes away while what it queued still waits for main.
TEST_F(TranscriptionServiceTest, streamsTheAnswerAndMayGoBeforeItsCallbacksAreCalled) {
    std::ofstream(m_folder / "x.m4a") << sound;
    m_http.onResume = [](const FakeHttp::Exchange& exchange) {
        exchange.answer(200, answerStream, {{"X-Transcription-Ms", "850"}});
    };
    clean(mistral);
    chat();
    m_http.onResume = {};
    chat("in flight");
    m_service.reset();
    m_mainQueue.runPending();
    EXPECT_THAT(m_told.calls,
                ElementsAre("time 850", "token Bon", "text Bon", "token Bon", "text Bon"));
}

// Catches text that is damaged on its way into JSON, and a wrong model.
TEST_F(TranscriptionServiceTest, asksForCleanupInJson) {
    const std::string raw = "dit \"oui\"\\\n\té 😀";
    for (const char* model : {"openai", "mistral", "", "OpenAI"}) {
        chat(raw, model);
        const HttpRequest& request = m_http.exchanges.back().request;
        EXPECT_EQ(request.url, "https://speech.example/api/chat");
        EXPECT_EQ(request.headers, (HttpHeaders{{"Authorization", "Bearer key"},
                                                {"Content-Type", "application/json"}}));
        const nlohmann::json expected = {
            {"model", model == std::string("openai") ? "gpt-5.4-mini" : "mistral-small-latest"},
            {"stream", true},
            {"messages",
             {{{"role", "system"}, {"content", "Nettoie"}}, {{"role", "user"}, {"content", raw}}}}};
        EXPECT_EQ(nlohmann::json::parse(request.body), expected);
    }
    chat("\xFF");
    EXPECT_THAT(m_told.calls, ElementsAre("failure Invalid server response"));
    EXPECT_EQ(m_http.exchanges.size(), 4u);
}

// Catches a warm-up that opens another connection than the one streamed requests use, that carries
// credentials, or whose answer disturbs the requests; a base URL that is normalised, and one that
// is no URL taken for a failed request.
TEST_F(TranscriptionServiceTest, warmsUpTheConnectionOfStreamedRequests) {
    EXPECT_EQ(m_http.sessionsMade, 0);
    m_service = makeService("https://speech.example/");
    m_service->warmUpConnection();
    const FakeHttp::Exchange warmUp = m_http.exchanges.at(0);
    EXPECT_EQ(warmUp.request.method, "HEAD");
    EXPECT_EQ(warmUp.request.url, "https://speech.example//api/version");
    EXPECT_THAT(warmUp.request.headers, IsEmpty());
    EXPECT_EQ(warmUp.request.idleTimeout, std::chrono::seconds(10));
    EXPECT_TRUE(warmUp.resumed);
    chat();
    EXPECT_EQ(m_http.exchanges[1].delegate, warmUp.delegate);
    EXPECT_EQ(m_http.sessionsMade, 1);
    EXPECT_NE(transcribe().delegate, warmUp.delegate);
    warmUp.answer(500, "no");
    m_mainQueue.runPending();
    EXPECT_THAT(m_told.calls, IsEmpty());

    m_service = makeService("speech example");
    m_service->warmUpConnection();
    EXPECT_EQ(m_http.exchanges.size(), 3u);
    EXPECT_DEATH(transcribe(), "is not a valid");
}

}  // namespace
}  // namespace nulo
