#include "GatewayFixture.h"

namespace nulo::service {
namespace {

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
                      {.pause = std::chrono::seconds(2)}) {}
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
