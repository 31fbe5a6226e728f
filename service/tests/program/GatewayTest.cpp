#include "Companion.h"
#include "config/PromptMode.h"

namespace nulo::service {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const std::string streamHead =
    "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nTransfer-Encoding: chunked\r\n\r\n";
const std::string done = httpChunk("data: [DONE]\n\n") + httpChunk("");

std::string event(const json& choice) {
    return httpChunk("data: " + json{{"choices", {choice}}}.dump() + "\n\n");
}
std::string token(const std::string& text) {
    return event({{"delta", {{"content", text}}}});
}
std::string jsonAnswer(int status, const json& body, std::vector<std::string> headers = {}) {
    headers.push_back("Content-Type: application/json");
    return httpResponse(status, body.dump(), headers);
}

/// Both vendors' parts are played by one scripted server.
class GatewayTest : public CompanionTest {
  protected:
    explicit GatewayTest(HttpServer::Limits serverLimits = {}, ProviderCalls::Limits limits = {})
        : CompanionTest(serverLimits, limits) {
        config.providers = {{"openai", upstream.url("/openai/v1"), "sk-secret-one", "", ""},
                            {"mistral", upstream.url("/mistral/v1"), "sk-secret-two", "", ""}};
    }

    /// What the upstream does with "…/audio/transcriptions" and "…/chat/completions".
    using Part = std::function<void(const ReceivedRequest&, Connection&)>;
    static Part says(std::string bytes) {
        return [bytes = std::move(bytes)](const ReceivedRequest&, Connection& connection) {
            connection.send(bytes);
            if (!bytes.ends_with(done))
                connection.close();
        };
    }
    Part transcriptions, chats;  // set while nobody asks

    static std::string question(const std::string& text = "what was spoken") {
        return json{{"model", "gpt-5.4-mini"},
                    {"stream", true},
                    {"messages", {{{"role", "user"}, {"content", text}}}}}
            .dump();
    }
    httplib::Result chat(const std::string& body = question()) const {
        return nulo().Post("/api/chat", body, "application/json");
    }
    /// What a client gets of a chat, also when it is cut short.
    std::string chatSoFar() const {
        const RawClient raw(port);
        raw.send(postOf("/api/chat", "Connection: close\r\n", question()));
        return raw.readAll();
    }

    ScriptedHttpServer upstream{[this](const ReceivedRequest& request, Connection& connection) {
        Part part = request.target.ends_with("/v1/chat/completions") ? chats : Part();
        if (request.target.ends_with("/v1/audio/transcriptions"))
            part = transcriptions;
        part ? part(request, connection) : connection.close();
    }};
};

TEST_F(GatewayTest, transcribesWithTheVendorThatIsNamed) {
    transcriptions = says(httpResponse(200, "what was spoken\n", {"Content-Type: text/plain"}));
    std::string form = formOf({{"provider", "openai"},
                               {"model", "gpt-4o-mini-transcribe"},
                               {"response_format", "text"},
                               {"prompt", ""},
                               {"file", speech("0880")}});
    form.replace(form.find("take.m4a"), 8, "../../etc/passwd");
    EXPECT_EQ(nulo().Post("/api/transcribe", form, formType)->body, "what was spoken\n");
    transcriptions = says(jsonAnswer(200, {{"text", "l'été"}, {"model", "voxtral"}}));
    EXPECT_EQ(transcribe({{"provider", "mistral"}})->body, "l'été");

    // A model that is asked about nothing invents something.
    const std::string silence = speechWav(std::vector<std::int16_t>(32000));
    form = formOf({{"cleanup_prompt", "Tidy."}, {"file", silence}});
    EXPECT_EQ(nulo().Post("/api/transcribe", form, formType)->body, "data: [DONE]\n\n");
    EXPECT_EQ(chat(question(" \n"))->body, "data: [DONE]\n\n");

    const auto requests = upstream.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].target, "/openai/v1/audio/transcriptions");
    EXPECT_EQ(requests[0].header("Authorization"), "Bearer sk-secret-one");
    EXPECT_THAT(requests[0].body,
                AllOf(HasSubstr("name=\"model\"\r\n\r\ngpt-4o-mini-transcribe\r\n"),
                      HasSubstr("name=\"response_format\"\r\n\r\ntext\r\n"),
                      HasSubstr("name=\"prompt\"\r\n\r\n\r\n"), HasSubstr(speech("0880")),
                      HasSubstr("filename=\"take.wav\""), Not(HasSubstr("passwd"))));
    EXPECT_EQ(requests[1].target, "/mistral/v1/audio/transcriptions");
    EXPECT_EQ(requests[1].header("Authorization"), "Bearer sk-secret-two");
}

// The stream was held back until the model was done.
TEST_F(GatewayTest, handsTheFirstWordOnWhileTheModelIsStillWriting) {
    transcriptions = says(httpResponse(200, "bon jour"));
    chats = [](const ReceivedRequest&, Connection& connection) {
        connection.send(streamHead + token("Bon"));
        connection.stall();
        connection.send(httpChunk(": hello\r\n\r\ndata: {\"choices\":[]}\n\ndata:"));
        connection.send(
            httpChunk(" {\"choices\":[{\"delta\":{\"content\":null}}]}\r\n\r\ndata: {"));
        connection.send(httpChunk("\"choices\":[{\"delta\":{\"content\":\"\\u00e9\xff\"}}]}\n\n") +
                        done);
    };
    const RawClient raw(port);
    raw.send(postOf("/api/transcribe", std::string("Content-Type: ") + formType + "\r\n",
                    formOf({{"cleanup_prompt", "Corrige.\nPas plus."},
                            {"cleanup_model", "mistral"},
                            {"file", speech("0880")}})));
    EXPECT_NE(raw.readUntil("Bon\"}}]}\n\n").find("X-Transcription-Ms: "), std::string::npos);
    upstream.release();
    EXPECT_NE(raw.readUntil("data: [DONE]\n\n").find("\"é\uFFFD\""), std::string::npos);
    const auto asked = upstream.requests().back();
    EXPECT_EQ(asked.target, "/mistral/v1/chat/completions");
    chat();
    const int before = upstream.acceptedConnections();
    EXPECT_EQ(chat()->status, 200);
    EXPECT_EQ(upstream.acceptedConnections(), before);
    EXPECT_EQ(json::parse(asked.body)["messages"],
              json({{{"role", "system"}, {"content", "Corrige.\nPas plus."}},
                    {{"role", "user"}, {"content", "bon jour"}}}));
}

TEST_F(GatewayTest, turnsFailuresIntoTextsToActOn) {
    const json unknown = {{"error", {{"message", "No model `x`"}, {"code", "model_not_found"}}}};
    const json quota = {{"error", {{"message", "Exceeded."}, {"code", "insufficient_quota"}}}};
    const json echo = {{"error", {{"message", "Incorrect API key provided: sk-secret-one."}}}};
    const std::tuple<std::string, int, const char*> faults[] = {
        {jsonAnswer(401, echo), 502, "refused the API key"},
        {jsonAnswer(404, unknown), 502, "does not know the model"},
        {httpResponse(404, "<html>"), 502, "baseURL"},
        {jsonAnswer(429, quota), 429, "quota"},
        {jsonAnswer(429, {}, {"Retry-After: 20"}), 429, "in 20 seconds"},
        {jsonAnswer(400, echo), 400, "provided: …"},
        {httpResponse(413, ""), 413, "too large"},
        {httpResponse(500, "\xff\xfe"), 502, "status 500"},
        {httpResponse(503, "later"), 503, "status 503"},
        {httpResponse(301, "", {"Location: http://127.0.0.1:1/"}), 502, "status 301"},
        {httpResponse(200, "<!DOCTYPE html>", {"Content-Type: text/html"}), 502, "no"},
        {httpResponse(200, std::string(20 << 20, 'x')), 502, "no"},
        {"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\ncut", 502, "closed before"},
    };
    for (const auto& [bytes, status, text] : faults) {
        transcriptions = chats = says(bytes);
        for (const auto& answer : {transcribe({{"provider", "openai"}}), chat()}) {
            ASSERT_TRUE(answer) << text;
            EXPECT_EQ(answer->status, status) << text << ": " << answer->body;
            EXPECT_THAT(answer->body, AllOf(HasSubstr(text), Not(HasSubstr("sk-secret"))));
        }
    }
    // The first half worked: the second's failure is still a status, and no stream that hangs.
    transcriptions = says(httpResponse(200, "spoken"));
    chats = says(jsonAnswer(401, echo));
    EXPECT_EQ(combined()->status, 502);
    upstream.stop();
    EXPECT_NE(transcribe({{"provider", "openai"}})->body.find("Connection refused"),
              std::string::npos);
}

TEST_F(GatewayTest, triesAgainUntilTheFirstWordAndBreaksTheClientsStreamAfterIt) {
    std::atomic<int> asked = 0;
    transcriptions = [&](const ReceivedRequest&, Connection& connection) {
        connection.send(httpResponse(++asked < 3 ? 429 : 200, "spoken"));
    };
    EXPECT_EQ(transcribe({{"provider", "openai"}})->status, 200);
    EXPECT_EQ(asked, 3);
    EXPECT_EQ(slept, 1250);

    const std::string half = streamHead + token("Half");
    const std::string much = token(std::string(1 << 16, 'y'));
    std::string endless = half;
    while (endless.size() < 20 << 20)
        endless += much;
    for (const std::string& bytes :
         {half + httpChunk("data: {\"error\":{\"message\":\"overloaded\"}}\n\n"),
          half + httpChunk("<html>\n"), half + httpChunk(""), half,
          half + httpChunk(std::string(2 << 20, 'x')), half + "zz\r\n", endless + done}) {
        chats = says(bytes);
        const std::string answer = chatSoFar();
        EXPECT_NE(answer.find("\"Half\""), std::string::npos) << answer;
        EXPECT_FALSE(answer.ends_with(httpChunk(""))) << answer.substr(answer.size() - 60);
    }
    EXPECT_EQ(upstream.requests().size(), 3u + 7u);
    // Some servers say that the model is done, and no more.
    const json stop = {{"delta", json::object()}, {"finish_reason", "stop"}};
    chats = says(half + event(stop) + httpChunk(""));
    EXPECT_TRUE(chatSoFar().ends_with("data: [DONE]\n\n\r\n0\r\n\r\n")) << chatSoFar();
}

// A language model on this machine writes as such servers do: the role first, an empty end with its
// reason, then the count.
TEST_F(GatewayTest, rewritesOnThisMachineInEveryModeThatAsksForIt) {
    config.providers = {{"local", upstream.url("/v1"), "", "", "small-instruct"}};
    letGo();
    chats = [](const ReceivedRequest& request, Connection& connection) {
        const json asked = json::parse(request.body);
        connection.send(
            streamHead + event({{"delta", {{"role", "assistant"}, {"content", nullptr}}}}) +
            token("Written: ") + token(asked["messages"][1]["content"]) +
            event({{"delta", json::object()}, {"finish_reason", "stop"}}) +
            httpChunk("data: {\"choices\":[],\"usage\":{\"total_tokens\":9}}\n\n") + done);
    };
    std::size_t asked = 0;
    for (const PromptMode& mode : defaultModes()) {
        if (mode.prompt.empty()) {
            EXPECT_EQ(transcribe({{"provider", "openai"}})->body, "um spoken words") << mode.id;
            continue;
        }
        EXPECT_EQ(transcribe({{"provider", "openai"},
                              {"cleanup_prompt", mode.prompt},
                              {"cleanup_model", mode.cleanupModel}})
                      ->body,
                  "data: {\"choices\":[{\"delta\":{\"content\":\"Written: \"}}]}\n\n"
                  "data: {\"choices\":[{\"delta\":{\"content\":\"um spoken words\"}}]}\n\n"
                  "data: [DONE]\n\n");
        ASSERT_EQ(upstream.requests().size(), ++asked) << mode.id;
        const json body = json::parse(upstream.requests().back().body);
        EXPECT_EQ(body["model"], "small-instruct") << mode.id;
        EXPECT_EQ(body["messages"][0]["content"], mode.prompt) << mode.id;
    }
    EXPECT_EQ(asked, 4u);
    upstream.stop();
    EXPECT_EQ(combined()->status, 502);  // what it would have written is not made up
}

// A dictation that nobody waits for must not go on costing money.
TEST_F(GatewayTest, cancelsTheProviderWhenTheClientLeaves) {
    for (const std::string& first : {std::string(), streamHead + token("One")}) {
        std::atomic<bool> asked = false;
        std::atomic<bool> cancelled = false;
        chats = [&](const ReceivedRequest&, Connection& connection) {
            connection.send(first);
            asked = true;
            connection.waitForClientToLeave();
            cancelled = true;
            connection.close();
        };
        {
            const RawClient raw(port);
            raw.send(postOf("/api/chat", "", question()));
            ASSERT_TRUE(waitUntil([&] { return asked.load(); }));
            EXPECT_FALSE(cancelled);
        }
        EXPECT_TRUE(waitUntil([&] { return cancelled.load(); }));
    }
}

struct ImpatientGatewayTest : GatewayTest {
    ImpatientGatewayTest()
        : GatewayTest({.pause = std::chrono::seconds(2)}, {.chatSilence = milliseconds(300)}) {}
};

TEST_F(ImpatientGatewayTest, doesNotWaitForEverForAProviderOrAReader) {
    chats = [](const ReceivedRequest&, Connection& connection) {
        connection.send(streamHead);
        connection.waitForClientToLeave();
        connection.close();
    };
    EXPECT_EQ(chat()->status, 504);

    // A reader that stops reading is let go, and the provider with it.
    std::atomic<bool> cancelled = false;
    chats = [&](const ReceivedRequest&, Connection& connection) {
        connection.send(streamHead);
        while (connection.send(token(std::string(1 << 14, 'y')))) {
        }
        cancelled = true;
        connection.close();
    };
    const RawClient raw(port, 4096);
    raw.send(postOf("/api/chat", "", question()));
    EXPECT_TRUE(waitUntil([&] { return cancelled.load(); }, std::chrono::seconds(60)));
}

}  // namespace
}  // namespace nulo::service
