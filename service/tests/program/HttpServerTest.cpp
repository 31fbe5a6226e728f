#include <pthread.h>

#include "Companion.h"

namespace nulo::service {
namespace {

class HttpServerTest : public CompanionTest {
  protected:
    using CompanionTest::CompanionTest;
    int statusOf(const httplib::Result& answer) const { return answer ? answer->status : 0; }
    int version() const { return statusOf(nulo().Get("/api/version")); }
};

TEST_F(HttpServerTest, refusesMoreThanItCanRecogniseAndRecovers) {
    auto first = std::async(std::launch::async, [this] { return transcribe(); });
    ASSERT_TRUE(waitUntil([&] { return hearing == 1; }));
    const auto refused = transcribe();
    ASSERT_EQ(statusOf(refused), 503);
    EXPECT_EQ(refused->get_header_value("Retry-After"), "3");
    EXPECT_EQ(version(), 200);  // the rest goes on
    letGo();
    EXPECT_EQ(first.get()->status, 200);
    EXPECT_EQ(transcribe()->status, 200);
}

// Where no thread can be had, the exception ended the service.
TEST_F(HttpServerTest, refusesWhatItHasNoThreadFor) {
    pthread_attr_t usual;
    pthread_attr_t endless;
    pthread_getattr_default_np(&usual);
    pthread_attr_init(&endless);
    pthread_attr_setstacksize(&endless, std::size_t{1} << 46);
    ASSERT_EQ(pthread_setattr_default_np(&endless), 0);
    EXPECT_EQ(version(), 503);
    pthread_setattr_default_np(&usual);
    EXPECT_EQ(version(), 200);
}

// A web page put a request without an Origin into the body of one that was refused.
TEST_F(HttpServerTest, readsNothingBehindAHeadThatItRefuses) {
    const std::string hidden =
        "GET /healthz HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
    const std::string head = "POST /api/chat HTTP/1.1\r\nHost: localhost\r\n";
    for (const auto& [start, request] : std::initializer_list<std::pair<const char*, std::string>>{
             {"", postOf("/" + std::string(40000, 'a'), "", hidden)},
             {"HTTP/1.1 403", postOf("/api/chat", "Origin: null\r\n", hidden)},
             {"HTTP/1.1 403", postOf("/healthz", "Sec-Fetch-Site: cross-site\r\n", hidden)},
             {"HTTP/1.1 400", postOf("/api/chat", "no colon\r\n", hidden)},
             {"HTTP/1.1 400", postOf("/api/chat", "Content-Length: 1\r\n", "x" + hidden)},
             {"HTTP/1.1 411", head + "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n" + hidden},
             {"HTTP/1.1 411",
              postOf("/api/chat", "Transfer-Encoding: chunked\r\n", "0\r\n\r\n" + hidden)},
             {"HTTP/1.1 400",
              postOf("/api/chat", "Transfer-Encoding : chunked\r\n", "0\r\n\r\n" + hidden)},
             {"HTTP/1.1 400", postOf("/api/chat", "X: a\rContent-Length: 1\r\n", hidden)},
             {"", postOf("/api/chat", "X: " + std::string(100000, 'x') + "\r\n", hidden)},
             {"", head + "Content-Length: +5\r\n\r\nhello" + hidden},
             {"", head + "Content-Length: 99999999999999999999\r\n\r\n" + hidden},
             {"", "nonsense\r\n\r\n" + hidden},
         }) {
        const RawClient raw(port);
        raw.send(request + hidden);  // the second time behind the body
        const std::string answer = raw.readAll();
        EXPECT_TRUE(answer.starts_with(start)) << request.substr(0, 90) << answer;
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

struct OneConnectionTest : HttpServerTest {
    OneConnectionTest() : HttpServerTest({.head = milliseconds(300), .connections = 1}) {}
};

// A client that dribbles a head, or sends none, must not keep the others out for ever.
TEST_F(OneConnectionTest, outlastsASlowHead) {
    const RawClient slow(port);
    slow.send("GET /api/");
    EXPECT_EQ(version(), 200);
}

struct OneOfAnAddressTest : HttpServerTest {
    OneOfAnAddressTest() : HttpServerTest({.connectionsOfOneAddress = 1}) {}
};

TEST_F(OneOfAnAddressTest, isNotTakenWholeByOneAddress) {
    const RawClient first(port);
    EXPECT_EQ(version(), 0);
    auto other = nulo();
    other.set_interface("127.0.0.2");
    EXPECT_EQ(statusOf(other.Get("/api/version")), 200);
}

class PatientTest : public HttpServerTest {
  protected:
    PatientTest()
        : HttpServerTest(
              {.exchange = {.firstByte = milliseconds(1), .nextByte = milliseconds(1)}}) {}

    void expectBegun(const std::string& form, const std::string& filler, const char* text) {
        const RawClient raw(port);
        raw.send(
            postOf("/api/transcribe", std::string("Content-Type: ") + formType + "\r\n", form));
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
