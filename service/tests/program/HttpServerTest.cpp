#include "Companion.h"

namespace nulo::service {
namespace {

class HttpServerTest : public CompanionTest {
  protected:
    using CompanionTest::CompanionTest;
    const std::string formHead = std::string("Content-Type: ") + formType + "\r\n";
};

TEST_F(HttpServerTest, refusesMoreThanItCanRecogniseAndRecovers) {
    auto first = std::async(std::launch::async, [this] { return transcribe(); });
    ASSERT_TRUE(waitUntil([&] { return hearing == 1; }));
    const auto refused = transcribe();
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status, 503);
    EXPECT_EQ(refused->get_header_value("Retry-After"), "3");
    EXPECT_EQ(nulo().Get("/api/version")->status, 200);  // the rest goes on
    letGo();
    EXPECT_EQ(first.get()->status, 200);
    EXPECT_EQ(transcribe()->status, 200);
}

// Stopping cut a streamed answer off before its end marker, or never ended beside an idle client.
TEST_F(HttpServerTest, finishesTheStreamInFlightAndDropsIdleClients) {
    httplib::Client idle("127.0.0.1", port);
    idle.set_keep_alive(true);
    ASSERT_EQ(idle.Get("/api/version")->status, 200);
    auto inFlight = std::async(std::launch::async, [this] { return combined(); });
    ASSERT_TRUE(waitUntil([&] { return hearing == 1; }));
    finish();
    ASSERT_TRUE(waitUntil([&] { return !nulo().Get("/api/version"); }));
    letGo();
    const auto answer = inFlight.get();
    EXPECT_EQ(answer->status, 200);
    EXPECT_EQ(answer->body,
              "data: {\"choices\":[{\"delta\":{\"content\":\"Spoken\"}}]}\n\n"
              "data: {\"choices\":[{\"delta\":{\"content\":\" words.\"}}]}\n\n"
              "data: [DONE]\n\n");
    ASSERT_TRUE(waitUntil([&] {
        return logged().find("POST /api/transcribe 200 ") != std::string::npos;
    })) << logged();
}

// A web page put a request without an Origin into the body of one that was refused.
TEST_F(HttpServerTest, readsNothingBehindAHeadThatItRefuses) {
    const std::string hidden =
        "GET /healthz HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
    const std::string head = "POST /api/chat HTTP/1.1\r\nHost: localhost\r\n";
    const std::string refused[] = {
        postOf("/" + std::string(40000, 'a'), "", hidden),
        postOf("/api/chat", "Origin: null\r\n", hidden),
        postOf("/healthz", "Sec-Fetch-Site: cross-site\r\n", hidden),
        postOf("/api/chat", "no colon\r\n", hidden),
        postOf("/api/chat", "Content-Length: 1\r\n", "x" + hidden),
        postOf("/api/chat", "Transfer-Encoding: chunked\r\n", "0\r\n\r\n" + hidden),
        postOf("/api/chat", "Transfer-Encoding : chunked\r\n", "0\r\n\r\n" + hidden),
        postOf("/api/chat", "X: a\rContent-Length: 1\r\n", hidden),
        postOf("/api/chat", "X: " + std::string(100000, 'x') + "\r\n", hidden),
        head + "Content-Length: +5\r\n\r\nhello" + hidden,
        head + "Content-Length: 99999999999999999999\r\n\r\n" + hidden,
        "nonsense\r\n\r\n" + hidden,
    };
    for (const std::string& request : refused) {
        const RawClient raw(port);
        raw.send(request + hidden);  // the second time behind the body
        const std::string answer = raw.readAll();
        EXPECT_FALSE(answer.starts_with("HTTP/1.1 2")) << request.substr(0, 90) << answer;
        EXPECT_EQ(answer.find("ok\n"), std::string::npos) << request.substr(0, 90) << answer;
    }
    const RawClient raw(port);
    raw.send(hidden);
    EXPECT_NE(raw.readUntil("ok\n").find("200 OK"), std::string::npos);
}

// A client that chooses a model or a path must not write lines of the log.
TEST_F(HttpServerTest, logsNothingButVisibleText) {
    config.providers = {{"openai", "http://127.0.0.1:9", "sk-secret", "", ""}};
    letGo();
    transcribe({{"provider", "openai"}, {"model", "a\nforged\x1B[2J" + std::string(9999, 'm')}});
    nulo().Get("/a%0Aforged");
    ASSERT_TRUE(waitUntil([&] { return logged().find("GET /a?forged 404") != std::string::npos; }));
    EXPECT_EQ(logged().find("\nforged"), std::string::npos) << logged();
    EXPECT_NE(logged().find("(a?forged?[2Jmmm"), std::string::npos) << logged();
    EXPECT_LT(logged().size(), 1000u);
}

class OneConnectionTest : public HttpServerTest {
  protected:
    OneConnectionTest() : HttpServerTest({.head = milliseconds(300), .connections = 1}) {}
};

// A client that dribbles a head, or sends none, must not keep the others out for ever.
TEST_F(OneConnectionTest, outlastsASlowHead) {
    const RawClient slow(port);
    slow.send("GET /api/");
    EXPECT_EQ(nulo().Get("/api/version")->status, 200);
}

class PatientTest : public HttpServerTest {
  protected:
    PatientTest()
        : HttpServerTest(
              {.exchange = {.firstByte = milliseconds(1), .nextByte = milliseconds(1)}}) {}

    void expectBegun(const std::string& form, const std::string& filler, const char* text) {
        const RawClient raw(port);
        raw.send(postOf("/api/transcribe", formHead, form));
        const std::string first = raw.readUntil(filler + filler);
        EXPECT_TRUE(first.starts_with("HTTP/1.1 200 OK\r\n")) << first;
        EXPECT_EQ(first.find("X-Transcription-Ms"), std::string::npos) << first;
        letGo();
        EXPECT_NE(raw.readUntil("\r\n0\r\n\r\n").find(text), std::string::npos);
    }
};

// Nulo gives a dictation up after a minute of silence.
TEST_F(PatientTest, beginsAPlainAnswerBeforeTheTextIsThere) {
    expectBegun(formOf({{"file", speech("0880")}}), "1\r\n \r\n", "um spoken words");
}

TEST_F(PatientTest, beginsAStreamBeforeTheTextIsThere) {
    expectBegun(formOf({{"cleanup_prompt", ""}, {"file", speech("0880")}}), "3\r\n:\n\n\r\n",
                "Spoken");
}

}  // namespace
}  // namespace nulo::service
