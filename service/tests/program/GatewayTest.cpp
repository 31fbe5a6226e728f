#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>

#include "Form.h"
#include "service/GatewayCleanup.h"
#include "service/GatewayRecogniser.h"
#include "service/HttpServer.h"
#include "service/OfflineRecogniser.h"
#include "service/RuleCleanup.h"
#include "service/Sha256.h"
#include "service/SpeechApi.h"
#include "support/ScriptedHttpServer.h"
#include "support/WaitUntil.h"

namespace nulo::service {
namespace {

using nlohmann::json;
using Connection = ScriptedHttpServer::Connection;
using std::chrono::milliseconds;

const std::string streamHead =
    "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nTransfer-Encoding: chunked\r\n\r\n";

std::string token(const std::string& text) {
    return "data: " + json{{"choices", {{{"delta", {{"content", text}}}}}}}.dump() + "\n\n";
}
std::string streamOf(const std::vector<std::string>& texts) {
    std::string stream = streamHead;
    for (const std::string& text : texts)
        stream += httpChunk(token(text));
    return stream + httpChunk("data: [DONE]\n\n") + httpChunk("");
}
std::string jsonAnswer(int status, const json& body, std::vector<std::string> headers = {}) {
    headers.push_back("Content-Type: application/json");
    return httpResponse(status, body.dump(), headers);
}

/// Words of the answer's events, and whether it ended as it should.
std::pair<std::string, bool> textOf(const std::string& stream) {
    std::istringstream lines(stream);
    std::string text;
    for (std::string line; std::getline(lines, line);) {
        if (line == "data: [DONE]")
            return {text, true};
        if (!line.empty())
            text += json::parse(line.substr(6))["choices"][0]["delta"]["content"];
    }
    return {text, false};
}

/// The gateway in this process, with both vendors' parts played by one scripted server.
class GatewayTest : public testing::Test {
  protected:
    explicit GatewayTest(ProviderCalls::Limits limits = {}, HttpServer::Limits serverLimits = {})
        : calls(
              client, systemClock(),
              [this](milliseconds duration) {
                  const std::scoped_lock lock(mutex);
                  slept += duration;
              },
              [this](std::string_view line) { keepLine(line); }, metrics, limits),
          server(
              systemClock(), [this](std::string_view line) { keepLine(line); }, serverLimits) {
        config.providers = {
            {"openai", upstream.url("/openai/v1"), "sk-secret-one", "", ""},
            {"mistral", upstream.url("/mistral/v1"), "sk-secret-two", "", ""},
        };
        api.onMetrics = [this] { return metrics.text(); };
        api.attachTo(server);
        port = server.listenOn("127.0.0.1", 0).value();
        running = std::thread([this] { server.run(); });
    }
    ~GatewayTest() override {
        upstream.stop();
        server.finish();
        running.join();
        EXPECT_EQ(log.find("sk-secret"), std::string::npos) << log;
        EXPECT_EQ(log.find("spoken"), std::string::npos) << log;
    }

    /// What the upstream does with "…/audio/transcriptions" and "…/chat/completions".
    using Part = std::function<void(const ReceivedRequest&, Connection&)>;
    static Part says(std::string bytes) {
        return [bytes = std::move(bytes)](const ReceivedRequest&, Connection& connection) {
            connection.send(bytes);
        };
    }
    void play(Part transcriptions, Part chat = {}) {
        const std::scoped_lock lock(mutex);
        m_transcriptions = std::move(transcriptions);
        m_chat = std::move(chat);
    }

    httplib::Client nulo() const {
        httplib::Client one("127.0.0.1", port);
        one.set_read_timeout(60);
        return one;
    }
    httplib::Result transcribe(const std::string& provider = "openai") const {
        return checked(nulo().Post("/api/transcribe",
                                   formOf({{"provider", provider}, {"file", speech("0880")}}),
                                   formType));
    }
    httplib::Result combined() const {
        return checked(nulo().Post("/api/transcribe",
                                   formOf({{"provider", "openai"},
                                           {"cleanup_prompt", "Tidy."},
                                           {"cleanup_model", "mistral"},
                                           {"file", speech("0880")}}),
                                   formType));
    }
    static std::string question(const std::string& model = "gpt-5.4-mini",
                                const std::string& text = "what was spoken") {
        return json{{"model", model},
                    {"stream", true},
                    {"messages",
                     {{{"role", "system"}, {"content", "Tidy \"it\".\n"}},
                      {{"role", "user"}, {"content", text}}}}}
            .dump();
    }
    httplib::Result chat(const std::string& body = question()) const {
        return checked(nulo().Post("/api/chat", body, "application/json"));
    }
    /// A socket on which a chat was asked, for clients that do not behave; -1 when that failed.
    int askChatOnSocket(std::optional<int> receiveBuffer = std::nullopt) const {
        const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
        if (receiveBuffer)
            setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &*receiveBuffer, sizeof *receiveBuffer);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const std::string body = question();
        const std::string request =
            "POST /api/chat HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n"
            "Content-Length: " +
            std::to_string(body.size()) + "\r\n\r\n" + body;
        const bool sent =
            connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
            send(socket, request.data(), request.size(), 0) == ssize_t(request.size());
        if (sent)
            return socket;
        close(socket);
        return -1;
    }
    /// What a client gets of a chat, also when it is cut short.
    std::pair<std::string, bool> chatSoFar() const {
        std::string bytes;
        httplib::Request request;
        request.method = "POST";
        request.path = "/api/chat";
        request.body = question();
        request.set_header("Content-Type", "application/json");
        request.content_receiver = [&](const char* data, std::size_t size, std::uint64_t,
                                       std::uint64_t) {
            bytes.append(data, size);
            return true;
        };
        const auto answer = nulo().send(request);
        const auto [text, ended] = textOf(bytes);
        EXPECT_EQ(bool(answer), ended);  // broken for the client's HTTP library too
        return {text, ended};
    }
    static httplib::Result checked(httplib::Result answer) {
        if (answer) {
            EXPECT_EQ(answer->body.find("sk-secret"), std::string::npos) << answer->body;
            if (answer->status != 200) {
                EXPECT_EQ(answer->body.back(), '\n');
            }
        }
        return answer;
    }
    void keepLine(std::string_view line) {
        const std::scoped_lock lock(mutex);
        log += std::string(line) + "\n";
    }
    std::string logged() {
        const std::scoped_lock lock(mutex);
        return log;
    }

    std::mutex mutex;
    std::string log;  // with the next, under mutex
    milliseconds slept{0};
    GatewayConfig config;
    Metrics metrics;
    UpstreamClient client{{}};
    ProviderCalls calls;
    OfflineRecogniser offline{
        [] { return Result<std::unique_ptr<SpeechEngine>>(Error{"none here"}); },
        {.atOnce = 1, .waiting = 0},
        OfflineRecogniser::Languages::english};
    RuleCleanup rules;
    GatewayRecogniser recogniser{config, calls, offline};
    GatewayCleanup cleanup{config, calls, rules};
    SpeechApi api{recogniser, cleanup, RequestGuard({}), systemClock(), "1.2", UpdateFolder({})};
    HttpServer server;
    int port = 0;
    std::thread running;

  private:
    Part m_transcriptions, m_chat;  // mutex

  protected:
    ScriptedHttpServer upstream{[this](const ReceivedRequest& request, Connection& connection) {
        std::unique_lock lock(mutex);
        const bool isChat = request.target.ends_with("/v1/chat/completions");
        const Part part = isChat ? m_chat : m_transcriptions;
        lock.unlock();
        if (part && (isChat || request.target.ends_with("/v1/audio/transcriptions")))
            part(request, connection);
        else
            connection.close();
    }};
};

TEST_F(GatewayTest, transcribesWithTheVendorThatIsNamed) {
    play(says(httpResponse(200, "what was spoken\n", {"Content-Type: text/plain"})));
    std::string form = formOf({{"provider", "openai"},
                               {"model", "gpt-4o-mini-transcribe"},
                               {"response_format", "text"},
                               {"prompt", ""},
                               {"file", speech("0880")}});
    form.replace(form.find("take.m4a"), 8, "../../etc/passwd");
    auto answer = nulo().Post("/api/transcribe", form, formType);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 200);
    EXPECT_EQ(answer->body, "what was spoken\n");
    play(says(jsonAnswer(200, {{"text", "l'été"}, {"model", "voxtral"}})));
    EXPECT_EQ(transcribe("mistral")->body, "l'été");

    const auto requests = upstream.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].target, "/openai/v1/audio/transcriptions");
    EXPECT_EQ(requests[0].header("Authorization"), "Bearer sk-secret-one");
    for (const char* part : {"name=\"model\"\r\n\r\ngpt-4o-mini-transcribe\r\n",
                             "name=\"response_format\"\r\n\r\ntext\r\n",
                             "name=\"prompt\"\r\n\r\n\r\n", "filename=\"take.wav\""})
        EXPECT_NE(requests[0].body.find(part), std::string::npos) << part;
    EXPECT_NE(requests[0].body.find(speech("0880")), std::string::npos);
    EXPECT_EQ(requests[0].body.find("passwd"), std::string::npos);
    EXPECT_EQ(requests[1].target, "/mistral/v1/audio/transcriptions");
    EXPECT_EQ(requests[1].header("Authorization"), "Bearer sk-secret-two");
    EXPECT_NE(requests[1].body.find("name=\"model\"\r\n\r\nvoxtral-mini-latest\r\n"),
              std::string::npos);
    EXPECT_EQ(requests[1].body.find("name=\"prompt\""), std::string::npos);
    EXPECT_NE(logged().find("transcription: mistral (voxtral-mini-latest), since the request"),
              std::string::npos)
        << logged();
}

// The stream was held back until the model was done.
TEST_F(GatewayTest, handsTheFirstWordOnWhileTheModelIsStillWriting) {
    play(says(httpResponse(200, "bon jour")), [](const ReceivedRequest&, Connection& connection) {
        connection.send(streamHead + httpChunk(token("Bon")));
        connection.stall();
        connection.send(httpChunk(token("jour")) + httpChunk("data: [DONE]\n\n") + httpChunk(""));
    });
    std::string bytes;
    httplib::Request request;
    request.method = "POST";
    request.path = "/api/transcribe";
    request.body = formOf({{"provider", "openai"},
                           {"cleanup_prompt", "Corrige.\nPas plus."},
                           {"cleanup_model", "mistral"},
                           {"file", speech("0880")}});
    request.set_header("Content-Type", formType);
    request.content_receiver = [&](const char* data, std::size_t size, std::uint64_t,
                                   std::uint64_t) {
        bytes.append(data, size);
        upstream.release();  // only once the first word is here
        return true;
    };
    const auto answer = nulo().send(request);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 200);
    EXPECT_TRUE(answer->has_header("X-Transcription-Ms"));
    EXPECT_EQ(textOf(bytes), std::pair(std::string("Bonjour"), true));
    const auto asked = upstream.requests().back();
    EXPECT_EQ(asked.target, "/mistral/v1/chat/completions");
    EXPECT_EQ(json::parse(asked.body),
              json({{"model", "mistral-small-latest"},
                    {"stream", true},
                    {"messages",
                     {{{"role", "system"}, {"content", "Corrige.\nPas plus."}},
                      {{"role", "user"}, {"content", "bon jour"}}}}}));
}

TEST_F(GatewayTest, passesAChatOnAndKeepsItsConnection) {
    play({}, says(streamHead + httpChunk(": hello\r\n\r\ndata: {\"choices\":[]}\n\n") +
                  httpChunk("data: {\"choices\":[{\"delta\":{\"role\":\"assistant\","
                            "\"content\":null}}]}\r\n\r\ndata:") +
                  httpChunk(" {\"choices\":[{\"delta\":{\"content\":\"\\u00e9\xff\"}}]}\n\n") +
                  httpChunk("data: [DONE]\n\n") + httpChunk("")));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(textOf(chat()->body), std::pair(std::string("é\uFFFD"), true));
    EXPECT_EQ(upstream.acceptedConnections(), 1);
    EXPECT_EQ(json::parse(upstream.requests()[0].body), json::parse(question()));
    EXPECT_EQ(upstream.requests()[0].target, "/openai/v1/chat/completions");
}

// A model that is asked about nothing invents something.
TEST_F(GatewayTest, asksNobodyAboutSilenceOrAnEmptyText) {
    const std::string silence = speech("0880").substr(0, 44) + std::string(64000, '\0');
    const auto plain = nulo().Post("/api/transcribe",
                                   formOf({{"provider", "openai"}, {"file", silence}}), formType);
    EXPECT_EQ(plain->status, 200);
    EXPECT_EQ(plain->body, "");
    const auto both = nulo().Post(
        "/api/transcribe", formOf({{"cleanup_prompt", "Tidy."}, {"file", silence}}), formType);
    EXPECT_EQ(both->status, 200);
    EXPECT_EQ(both->body, "data: [DONE]\n\n");
    EXPECT_EQ(chat(question("gpt-5.4-mini", " \n"))->body, "data: [DONE]\n\n");
    EXPECT_EQ(nulo().Post("/api/transcribe", formOf({{"file", "no audio"}}), formType)->status,
              415);
    EXPECT_TRUE(upstream.requests().empty());
    play(says(httpResponse(200, " \n")));
    EXPECT_EQ(combined()->body, "data: [DONE]\n\n");
    EXPECT_EQ(upstream.requests().size(), 1u);
}

TEST_F(GatewayTest, turnsFailuresIntoTextsToActOn) {
    const json unknownModel = {
        {"error", {{"message", "The model `x` does not exist"}, {"code", "model_not_found"}}}};
    const json quota = {
        {"error", {{"message", "You exceeded your quota."}, {"code", "insufficient_quota"}}}};
    const json echo = {{"error", {{"message", "Incorrect API key provided: sk-secret-one."}}}};
    const std::string page =
        httpResponse(200, "<!DOCTYPE html><html>", {"Content-Type: text/html"});
    struct Fault {
        std::string answer;
        int status;
        const char* text;
    };
    const Fault faults[] = {
        {jsonAnswer(401, echo), 502, "refused the API key"},
        {jsonAnswer(403, echo), 502, "providers.openai.apiKey"},
        {jsonAnswer(404, unknownModel), 502, "does not know the model"},
        {httpResponse(404, "<html>"), 502, "baseURL"},
        {jsonAnswer(429, quota), 429, "quota"},
        {jsonAnswer(429, {}, {"Retry-After: 20"}), 429, "in 20 seconds"},
        {jsonAnswer(429, {}), 429, "in a minute"},
        {jsonAnswer(400, echo), 400, "provided: …"},
        {jsonAnswer(400, {{"message", "Too\r\nshort"}}), 400, "It says: Too  short."},
        {httpResponse(413, ""), 413, "too large"},
        {httpResponse(500, "\xff\xfe"), 502, "status 500"},
        {httpResponse(503, "later"), 503, "status 503"},
        {httpResponse(301, "", {"Location: http://127.0.0.1:1/"}), 502, "status 301"},
        {page, 502, "no"},
        {httpResponse(200, std::string(20 << 20, 'x')), 502, "no"},
        {httpResponse(200, "\xff\xfe spoken"), 502, "no"},
        {jsonAnswer(200, {{"transcript", "spoken"}}), 502, "no"},
        {"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\ncut", 502, "closed before"},
        {"nonsense\r\n\r\n", 502, "HTTP"},
    };
    for (const auto& [bytes, status, text] : faults) {
        const Part part = [&bytes](const ReceivedRequest&, Connection& connection) {
            connection.send(bytes);
            connection.close();
        };
        play(part, part);
        for (const bool isChat : {false, true}) {
            const auto answer = isChat ? chat() : transcribe();
            ASSERT_TRUE(answer) << text;
            EXPECT_EQ(answer->status, status) << text << ": " << answer->body;
            EXPECT_NE(answer->body.find(text), std::string::npos) << text << ": " << answer->body;
        }
    }
    // The first half worked: the second's failure is still a status, and no stream that hangs.
    play(says(httpResponse(200, "spoken")), says(jsonAnswer(401, echo)));
    EXPECT_EQ(combined()->status, 502);
    upstream.stop();
    EXPECT_NE(transcribe()->body.find("Connection refused"), std::string::npos);
}

TEST_F(GatewayTest, triesAgainAsOftenAndAsLateAsItMay) {
    std::atomic<int> asked = 0;
    const auto failingFirst = [&](int failures, std::string failure) {
        asked = 0;
        slept = milliseconds(0);
        const Part part = [&asked, failures, failure](const ReceivedRequest&,
                                                      Connection& connection) {
            connection.send(++asked <= failures ? failure : httpResponse(200, "spoken"));
        };
        play(part, part);
    };
    failingFirst(2, httpResponse(429, "{}"));
    EXPECT_EQ(transcribe()->status, 200);
    EXPECT_EQ(asked, 3);
    EXPECT_EQ(slept, milliseconds(1250));
    failingFirst(1, httpResponse(503, "", {"Retry-After: 2"}));
    EXPECT_EQ(transcribe()->body, "spoken");
    EXPECT_EQ(slept, milliseconds(2000));
    failingFirst(3, httpResponse(500, ""));
    EXPECT_EQ(transcribe()->status, 502);
    EXPECT_EQ(asked, 3);
    failingFirst(3, httpResponse(429, "", {"Retry-After: 4"}));
    const auto later = chat();
    EXPECT_EQ(later->status, 429);
    EXPECT_EQ(later->get_header_value("Retry-After"), "4");
    EXPECT_EQ(asked, 1);
    // Nothing is said twice: what breaks after the first word is not begun anew.
    asked = 0;
    play({}, [&](const ReceivedRequest&, Connection& connection) {
        ++asked;
        connection.send(streamHead + httpChunk(token("Half")));
        connection.reset();
    });
    EXPECT_EQ(chatSoFar(), std::pair(std::string("Half"), false));
    EXPECT_EQ(asked, 1);
}

TEST_F(GatewayTest, breaksTheClientsStreamWhereTheProvidersBreaks) {
    const std::string half = streamHead + httpChunk(token("Half"));
    for (const std::string& rest :
         {httpChunk("data: {\"choices\":[{\"delta\":{},\"finish_reason\":\"length\"}]}\n\n"),
          httpChunk("data: {\"error\":{\"message\":\"overloaded\"}}\n\n"),
          httpChunk("data: {\"choi\n\n"), httpChunk("<html>\n"), httpChunk(""), std::string(),
          httpChunk(std::string(2 << 20, 'x')), std::string("zz\r\n")}) {
        play({}, [&](const ReceivedRequest&, Connection& connection) {
            connection.send(half + rest);
            connection.close();
        });
        EXPECT_EQ(chatSoFar(), std::pair(std::string("Half"), false)) << rest.substr(0, 60);
    }
    // Some servers say that the model is done, and no more.
    play({}, says(half +
                  httpChunk("data: {\"choices\":[{\"delta\":{},\"finish_reason\":"
                            "\"stop\"}]}\n\n") +
                  httpChunk("")));
    EXPECT_EQ(chatSoFar(), std::pair(std::string("Half"), true));
    std::vector<std::string> many(20 * 16, std::string(1 << 16, 'y'));
    play({}, says(streamOf(many)));
    const auto [text, ended] = chatSoFar();
    EXPECT_FALSE(ended);
    EXPECT_LT(text.size(), 9u << 20);
}

// A dictation that nobody waits for must not go on costing money.
TEST_F(GatewayTest, cancelsTheProviderWhenTheClientLeaves) {
    for (const bool afterTheFirstWord : {false, true}) {
        std::atomic<bool> asked = false;
        std::atomic<bool> cancelled = false;
        play({}, [&](const ReceivedRequest&, Connection& connection) {
            if (afterTheFirstWord)
                connection.send(streamHead + httpChunk(token("One")));
            asked = true;
            connection.waitForClientToLeave();
            cancelled = true;
            connection.close();
        });
        const int socket = askChatOnSocket();
        ASSERT_GE(socket, 0);
        ASSERT_TRUE(waitUntil([&] { return asked.load(); }));
        EXPECT_FALSE(cancelled);
        close(socket);
        EXPECT_TRUE(waitUntil([&] { return cancelled.load(); }));
    }
}

class ImpatientGatewayTest : public GatewayTest {
  protected:
    ImpatientGatewayTest()
        : GatewayTest({.atOnce = {.atOnce = 1, .waiting = 0},
                       .transcriptionSilence = milliseconds(1000),
                       .chatSilence = milliseconds(1000)},
                      {.connection = {.pause = milliseconds(2000)}}) {}
};

TEST_F(ImpatientGatewayTest, doesNotWaitForEverForAProviderOrAReader) {
    const auto stalling = [](std::string first) {
        return [first](const ReceivedRequest&, Connection& connection) {
            connection.send(first);
            connection.waitForClientToLeave();
            connection.close();
        };
    };
    play(stalling(""), stalling(""));
    EXPECT_EQ(transcribe()->status, 504);
    EXPECT_EQ(chat()->status, 504);
    play({}, stalling(streamHead));
    EXPECT_EQ(chat()->status, 504);
    play({}, stalling(streamHead + httpChunk(token("Half"))));
    EXPECT_EQ(chatSoFar(), std::pair(std::string("Half"), false));

    // A reader that stops reading is let go, and the provider with it.
    std::atomic<bool> cancelled = false;
    play({}, [&](const ReceivedRequest&, Connection& connection) {
        const std::string piece = httpChunk(token(std::string(1 << 14, 'y')));
        connection.send(streamHead);
        while (connection.send(piece)) {
        }
        cancelled = true;
        connection.close();
    });
    constexpr int smallBuffer = 4096;
    const int socket = askChatOnSocket(smallBuffer);
    ASSERT_GE(socket, 0);
    EXPECT_TRUE(waitUntil([&] { return cancelled.load(); }));
    close(socket);
}

TEST_F(ImpatientGatewayTest, refusesMoreThanItMayAskForAtOnce) {
    std::atomic<bool> asked = false;
    play({}, [&](const ReceivedRequest&, Connection& connection) {
        connection.send(streamHead + httpChunk(token("One")));
        asked = true;
        for (int i = 0; i < 200 && connection.send(httpChunk(": still here\n\n")); ++i)
            connection.pause(milliseconds(50));
        connection.close();
    });
    auto first = std::async(std::launch::async, [&] { return chat(); });
    ASSERT_TRUE(waitUntil([&] { return asked.load(); }));
    const auto refused = chat();
    EXPECT_EQ(refused->status, 503);
    EXPECT_EQ(refused->get_header_value("Retry-After"), "3");
    upstream.stop();
    EXPECT_FALSE(first.get());
}

}  // namespace
}  // namespace nulo::service
