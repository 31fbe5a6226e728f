#include "Companion.h"

namespace nulo::service {
namespace {

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
    void play(Part transcriptions, Part chat = {}) {
        const std::scoped_lock lock(mutex);
        m_parts = {{"/v1/audio/transcriptions", std::move(transcriptions)},
                   {"/v1/chat/completions", std::move(chat)}};
    }

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
    std::pair<std::string, bool> chatSoFar() const {
        std::string bytes;
        httplib::Request request{.method = "POST", .path = "/api/chat", .body = question()};
        request.content_receiver = [&](const char* data, std::size_t size, auto, auto) {
            bytes.append(data, size);
            return true;
        };
        const auto answer = nulo().send(request);
        const auto result = textOf(bytes);
        EXPECT_EQ(bool(answer), result.second);  // broken for the client's HTTP library too
        return result;
    }
    httplib::Result askedOf(const char* provider) const {
        return transcribe({{"provider", provider}});
    }

  private:
    std::map<std::string, Part> m_parts;  // mutex

  protected:
    ScriptedHttpServer upstream{[this](const ReceivedRequest& request, Connection& connection) {
        std::unique_lock lock(mutex);
        const std::size_t version = std::min(request.target.find("/v1"), request.target.size());
        const Part part = m_parts[request.target.substr(version)];
        lock.unlock();
        part ? part(request, connection) : connection.close();
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
    EXPECT_EQ(nulo().Post("/api/transcribe", form, formType)->body, "what was spoken\n");
    play(says(jsonAnswer(200, {{"text", "l'été"}, {"model", "voxtral"}})));
    EXPECT_EQ(askedOf("mistral")->body, "l'été");

    const auto requests = upstream.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].target, "/openai/v1/audio/transcriptions");
    EXPECT_EQ(requests[0].header("Authorization"), "Bearer sk-secret-one");
    for (const std::string& part : {std::string("name=\"model\"\r\n\r\ngpt-4o-mini-transcribe\r\n"),
                                    std::string("name=\"response_format\"\r\n\r\ntext\r\n"),
                                    std::string("name=\"prompt\"\r\n\r\n\r\n"),
                                    std::string("filename=\"take.wav\""), speech("0880")})
        EXPECT_NE(requests[0].body.find(part), std::string::npos) << part.substr(0, 80);
    EXPECT_EQ(requests[0].body.find("passwd"), std::string::npos);
    EXPECT_EQ(requests[1].target, "/mistral/v1/audio/transcriptions");
    EXPECT_EQ(requests[1].header("Authorization"), "Bearer sk-secret-two");
}

// The stream was held back until the model was done.
TEST_F(GatewayTest, handsTheFirstWordOnWhileTheModelIsStillWriting) {
    play(says(httpResponse(200, "bon jour")), [](const ReceivedRequest&, Connection& connection) {
        connection.send(streamHead + token("Bon"));
        connection.stall();
        connection.send(token("jour") + done);
    });
    const RawClient raw(port);
    raw.send(postOf("/api/transcribe", std::string("Content-Type: ") + formType + "\r\n",
                    formOf({{"cleanup_prompt", "Corrige.\nPas plus."},
                            {"cleanup_model", "mistral"},
                            {"file", speech("0880")}})));
    EXPECT_NE(raw.readUntil("Bon\"}}]}\n\n").find("X-Transcription-Ms: "), std::string::npos);
    upstream.release();
    EXPECT_NE(raw.readUntil("data: [DONE]\n\n").find("jour"), std::string::npos);
    const auto asked = upstream.requests().back();
    EXPECT_EQ(asked.target, "/mistral/v1/chat/completions");
    EXPECT_EQ(json::parse(asked.body)["messages"],
              json({{{"role", "system"}, {"content", "Corrige.\nPas plus."}},
                    {{"role", "user"}, {"content", "bon jour"}}}));
}

TEST_F(GatewayTest, passesAChatOnAndKeepsItsConnection) {
    const std::string dribble = ": hello\r\n\r\ndata: {\"choices\":[]}\n\ndata:";
    play({}, says(streamHead + httpChunk(dribble) +
                  httpChunk(" {\"choices\":[{\"delta\":{\"content\":null}}]}\r\n\r\ndata: {\"ch") +
                  httpChunk("oices\":[{\"delta\":{\"content\":\"\\u00e9\xff\"}}]}\n\n") + done));
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(textOf(chat()->body), std::pair(std::string("é\uFFFD"), true));
    EXPECT_EQ(upstream.acceptedConnections(), 1);
    EXPECT_EQ(json::parse(upstream.requests()[0].body), json::parse(question()));
}

// A model that is asked about nothing invents something.
TEST_F(GatewayTest, asksNobodyAboutSilenceOrAnEmptyText) {
    const std::string silence = speechWav(std::vector<std::int16_t>(32000));
    for (const auto& [form, status] :
         {std::pair{formOf({{"cleanup_prompt", "Tidy."}, {"file", silence}}), 200},
          {formOf({{"file", "no audio"}}), 415}})
        EXPECT_EQ(nulo().Post("/api/transcribe", form, formType)->status, status);
    EXPECT_EQ(chat(question(" \n"))->body, "data: [DONE]\n\n");
    EXPECT_TRUE(upstream.requests().empty());
}

TEST_F(GatewayTest, turnsFailuresIntoTextsToActOn) {
    const json unknown = {{"error", {{"message", "No model `x`"}, {"code", "model_not_found"}}}};
    const json quota = {{"error", {{"message", "Exceeded."}, {"code", "insufficient_quota"}}}};
    const json echo = {{"error", {{"message", "Incorrect API key provided: sk-secret-one."}}}};
    const std::tuple<std::string, int, const char*> faults[] = {
        {jsonAnswer(401, echo), 502, "refused the API key"},
        {jsonAnswer(403, echo), 502, "providers.openai.apiKey"},
        {jsonAnswer(404, unknown), 502, "does not know the model"},
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
        {httpResponse(200, "<!DOCTYPE html>", {"Content-Type: text/html"}), 502, "no"},
        {httpResponse(200, std::string(20 << 20, 'x')), 502, "no"},
        {httpResponse(200, "\xff\xfe spoken"), 502, "no"},
        {jsonAnswer(200, {{"transcript", "spoken"}}), 502, "no"},
        {"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\ncut", 502, "closed before"},
        {"nonsense\r\n\r\n", 502, "HTTP"},
    };
    for (const auto& [bytes, status, text] : faults) {
        play(says(bytes), says(bytes));
        for (const auto& answer : {askedOf("openai"), chat()}) {
            ASSERT_TRUE(answer) << text;
            EXPECT_EQ(answer->status, status) << text << ": " << answer->body;
            EXPECT_NE(answer->body.find(text), std::string::npos) << text << ": " << answer->body;
            EXPECT_EQ(answer->body.find("sk-secret"), std::string::npos) << answer->body;
        }
    }
    // The first half worked: the second's failure is still a status, and no stream that hangs.
    play(says(httpResponse(200, "spoken")), says(jsonAnswer(401, echo)));
    EXPECT_EQ(combined()->status, 502);
    upstream.stop();
    EXPECT_NE(askedOf("openai")->body.find("Connection refused"), std::string::npos);
}

TEST_F(GatewayTest, triesAgainUntilTheFirstWordAndBreaksTheClientsStreamAfterIt) {
    std::atomic<int> asked = 0;
    play([&](const ReceivedRequest&, Connection& connection) {
        connection.send(httpResponse(++asked < 3 ? 429 : 200, "spoken"));
    });
    EXPECT_EQ(askedOf("openai")->status, 200);
    EXPECT_EQ(asked, 3);
    EXPECT_EQ(slept, milliseconds(1250));

    const std::string half = streamHead + token("Half");
    const std::string stop = event({{"delta", json::object()}, {"finish_reason", "stop"}});
    for (const std::string& rest : {httpChunk("data: {\"error\":{\"message\":\"overloaded\"}}\n\n"),
                                    httpChunk("<html>\n"), httpChunk(""), std::string(),
                                    httpChunk(std::string(2 << 20, 'x')), std::string("zz\r\n")}) {
        play({}, says(half + rest));
        EXPECT_EQ(chatSoFar(), std::pair(std::string("Half"), false)) << rest.substr(0, 60);
    }
    EXPECT_EQ(upstream.requests().size(), 3u + 6u);
    // Some servers say that the model is done, and no more.
    play({}, says(half + stop + httpChunk("")));
    EXPECT_EQ(chatSoFar(), std::pair(std::string("Half"), true));
    std::string endless = streamHead;
    for (int i = 0; i < 20 * 16; ++i)
        endless += token(std::string(1 << 16, 'y'));
    play({}, says(endless + done));
    EXPECT_FALSE(chatSoFar().second);
}

// A dictation that nobody waits for must not go on costing money.
TEST_F(GatewayTest, cancelsTheProviderWhenTheClientLeaves) {
    for (const std::string& first : {std::string(), streamHead + token("One")}) {
        std::atomic<bool> asked = false;
        std::atomic<bool> cancelled = false;
        play({}, [&](const ReceivedRequest&, Connection& connection) {
            connection.send(first);
            asked = true;
            connection.waitForClientToLeave();
            cancelled = true;
            connection.close();
        });
        {
            const RawClient raw(port);
            raw.send(postOf("/api/chat", "", question()));
            ASSERT_TRUE(waitUntil([&] { return asked.load(); }));
            EXPECT_FALSE(cancelled);
        }
        EXPECT_TRUE(waitUntil([&] { return cancelled.load(); }));
    }
}

class ImpatientGatewayTest : public GatewayTest {
  protected:
    ImpatientGatewayTest()
        : GatewayTest({.pause = std::chrono::seconds(1)}, {.chatSilence = milliseconds(300)}) {}
};

TEST_F(ImpatientGatewayTest, doesNotWaitForEverForAProviderOrAReader) {
    play({}, [](const ReceivedRequest&, Connection& connection) {
        connection.send(streamHead);
        connection.waitForClientToLeave();
        connection.close();
    });
    EXPECT_EQ(chat()->status, 504);

    // A reader that stops reading is let go, and the provider with it.
    std::atomic<bool> cancelled = false;
    play({}, [&](const ReceivedRequest&, Connection& connection) {
        connection.send(streamHead);
        while (connection.send(token(std::string(1 << 14, 'y')))) {
        }
        cancelled = true;
        connection.close();
    });
    const RawClient raw(port, 4096);
    raw.send(postOf("/api/chat", "", question()));
    EXPECT_TRUE(waitUntil([&] { return cancelled.load(); }, std::chrono::seconds(60)));
}

}  // namespace
}  // namespace nulo::service
