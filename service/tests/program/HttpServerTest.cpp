#include "service/http/HttpServer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <httplib.h>

#include <future>
#include <mutex>

#include "Form.h"
#include "rig/process/WaitUntil.h"
#include "service/SpeechApi.h"
#include "service/offline/OfflineRecogniser.h"
#include "service/offline/RuleCleanup.h"

namespace nulo::service {
namespace {

using std::chrono::milliseconds;

/// Hears nothing until it is let go.
class HeldEngine final : public SpeechEngine {
  public:
    HeldEngine(std::atomic<int>& hearing, std::shared_future<void> release)
        : m_hearing(hearing), m_release(std::move(release)) {}
    std::string hear(std::span<const std::int16_t>, const std::string&) override {
        ++m_hearing;
        m_release.wait();
        return "um the words";
    }

  private:
    std::atomic<int>& m_hearing;
    std::shared_future<void> m_release;
};

/// The server in this process, on engines that answer when the test says so.
class HttpServerTest : public testing::Test {
  protected:
    explicit HttpServerTest(HttpServer::Limits limits = {}, std::size_t waiting = 0)
        : recogniser(
              [this, future = release.get_future().share()] {
                  return Result<std::unique_ptr<SpeechEngine>>(
                      std::make_unique<HeldEngine>(hearing, future));
              },
              {.atOnce = 1, .waiting = waiting}, OfflineRecogniser::Languages::english),
          server(
              systemClock(),
              [this](std::string_view line) {
                  const std::scoped_lock lock(logMutex);
                  log += std::string(line) + "\n";
              },
              limits, [this](const RequestHead& head) { return api.accept(head); }) {
        const auto socket = openSocket("127.0.0.1", 0).value();
        EXPECT_TRUE(server.start(socket, std::nullopt));
        port = socket.port;
        running = std::thread([this] { server.run(); });
    }
    ~HttpServerTest() override {
        letGo();
        finish();
        running.join();
    }

    void letGo() {
        if (!std::exchange(released, true))
            release.set_value();
    }
    void finish() {
        if (!std::exchange(finished, true))
            server.finish();
    }
    std::string logged() {
        const std::scoped_lock lock(logMutex);
        return log;
    }
    /// Status and body of a combined request.
    std::future<std::pair<int, std::string>> combined() {
        return std::async(std::launch::async, [this] {
            httplib::Client client("127.0.0.1", port);
            client.set_read_timeout(60);
            const auto answer =
                client.Post("/api/transcribe",
                            formOf({{"cleanup_prompt", ""}, {"file", speech("0880")}}), formType);
            return answer ? std::pair(answer->status, answer->body) : std::pair(0, std::string());
        });
    }

    std::promise<void> release;
    std::atomic<int> hearing = 0;
    OfflineRecogniser recogniser;
    RuleCleanup cleanup;
    SpeechApi api{recogniser, cleanup, RequestGuard({}), systemClock(), "1.2", UpdateFolder({})};
    std::mutex logMutex;
    std::string log;
    bool released = false;
    bool finished = false;
    HttpServer server;
    int port = 0;
    std::thread running;
};

TEST_F(HttpServerTest, refusesMoreThanItCanRecogniseAndRecovers) {
    auto first = combined();
    ASSERT_TRUE(waitUntil([&] { return hearing == 1; }));
    httplib::Client client("127.0.0.1", port);
    const std::string form = formOf({{"file", speech("0880")}});
    const auto refused = client.Post("/api/transcribe", form, formType);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status, 503);
    EXPECT_EQ(refused->get_header_value("Retry-After"), "3");
    EXPECT_EQ(client.Get("/api/version")->status, 200);  // the rest goes on
    letGo();
    EXPECT_EQ(first.get().first, 200);
    EXPECT_EQ(client.Post("/api/transcribe", form, formType)->status, 200);
}

// Stopping cut a streamed answer off before its end marker, or never ended beside an idle client.
TEST_F(HttpServerTest, finishesTheStreamInFlightAndDropsIdleClients) {
    httplib::Client idle("127.0.0.1", port);
    idle.set_keep_alive(true);
    ASSERT_EQ(idle.Get("/api/version")->status, 200);
    auto inFlight = combined();
    ASSERT_TRUE(waitUntil([&] { return hearing == 1; }));
    finish();
    ASSERT_TRUE(waitUntil([&] { return !httplib::Client("127.0.0.1", port).Get("/api/version"); }));
    letGo();
    const auto [status, body] = inFlight.get();
    EXPECT_EQ(status, 200);
    EXPECT_EQ(body,
              "data: {\"choices\":[{\"delta\":{\"content\":\"The\"}}]}\n\n"
              "data: {\"choices\":[{\"delta\":{\"content\":\" words.\"}}]}\n\n"
              "data: [DONE]\n\n");
    ASSERT_TRUE(waitUntil([&] {
        return logged().find("POST /api/transcribe 200 ") != std::string::npos;
    })) << logged();
    EXPECT_EQ(logged().find("words"), std::string::npos);  // what was said is nobody's business
}

/// A connection without an HTTP library.
class RawClient {
  public:
    explicit RawClient(int port) : m_socket(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    ~RawClient() { close(m_socket); }
    void send(std::string_view bytes) const {
        EXPECT_EQ(::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  ssize_t(bytes.size()));
    }
    /// What arrives until `end` has, or until the server closes.
    std::string readUntil(std::string_view end) const {
        std::string bytes;
        char piece[4096];
        for (ssize_t count = 0; end.empty() || bytes.find(end) == std::string::npos;) {
            if ((count = recv(m_socket, piece, sizeof piece, 0)) <= 0)
                break;
            bytes.append(piece, static_cast<std::size_t>(count));
        }
        return bytes;
    }
    std::string readAll() const { return readUntil(""); }

  private:
    const int m_socket;
};

std::string postOf(const std::string& path, const std::string& headers, const std::string& body) {
    return "POST " + path + " HTTP/1.1\r\nHost: localhost\r\n" + headers +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

// A web page put a request without an Origin into the body of one that was refused.
TEST_F(HttpServerTest, readsNothingBehindAHeadThatItRefuses) {
    const std::string hidden = "GET /healthz HTTP/1.1\r\nHost: localhost\r\n\r\n";
    const std::string head = "POST /api/chat HTTP/1.1\r\nHost: localhost\r\n";
    const std::string refused[] = {
        postOf("/" + std::string(40000, 'a'), "", hidden),
        postOf("/api/chat", "Origin: null\r\n", hidden),
        postOf("/healthz", "Sec-Fetch-Site: cross-site\r\n", hidden),
        postOf("/api/chat", "no colon\r\n", hidden),
        postOf("/api/chat", "Content-Length: 1\r\n", hidden),
        postOf("/api/chat", "Transfer-Encoding: chunked\r\n", "0\r\n\r\n" + hidden),
        postOf("/api/chat", "Transfer-Encoding : chunked\r\n", "0\r\n\r\n" + hidden),
        postOf("/api/chat", "X: a\rContent-Length: 1\r\n", hidden),
        postOf("/api/chat", "X: " + std::string(100000, 'x') + "\r\n", hidden),
        head + "Content-Length: +5\r\n\r\nhello" + hidden,
        head + "Content-Length: 99999999999999999999\r\n\r\n" + hidden,
        "nonsense\r\n\r\n" + hidden,
    };
    for (const std::string& request : refused) {
        const RawClient client(port);
        client.send(request);
        const std::string answer = client.readAll();  // ends: the connection is closed
        EXPECT_FALSE(answer.starts_with("HTTP/1.1 2")) << request.substr(0, 90) << answer;
        EXPECT_EQ(answer.find("ok\n"), std::string::npos) << request.substr(0, 90) << answer;
    }
    const RawClient client(port);
    client.send(hidden + hidden);
    EXPECT_NE(client.readUntil("ok\n").find("200 OK"), std::string::npos);
}

class OneConnectionTest : public HttpServerTest {
  protected:
    OneConnectionTest() : HttpServerTest({.head = milliseconds(300), .connections = 1}) {}
};

// A client that dribbles a head, or sends none, must not keep the others out for ever.
TEST_F(OneConnectionTest, outlastsASlowHead) {
    const RawClient slow(port);
    slow.send("GET /api/");
    EXPECT_EQ(httplib::Client("127.0.0.1", port).Get("/api/version")->status, 200);
}

class PatientTest : public HttpServerTest {
  protected:
    PatientTest()
        : HttpServerTest({.exchange = {.firstByte = milliseconds(1), .nextByte = milliseconds(1)}},
                         1) {}
};

// Nulo gives a dictation up after a minute of silence.
TEST_F(PatientTest, beginsTheAnswerBeforeTheTextIsThere) {
    const RawClient client(port);
    const std::string type = std::string("Content-Type: ") + formType + "\r\n";
    client.send(postOf("/api/transcribe", type, formOf({{"file", speech("0880")}})));
    const std::string first = client.readUntil("\r\n\r\n1\r\n \r\n1\r\n \r\n");
    EXPECT_TRUE(first.starts_with("HTTP/1.1 200 OK\r\n")) << first;
    EXPECT_EQ(first.find("X-Transcription-Ms"), std::string::npos) << first;
    auto waits = combined();
    letGo();
    EXPECT_NE(client.readUntil("\r\n0\r\n\r\n").find("um the words"), std::string::npos);
    const auto [status, body] = waits.get();
    EXPECT_EQ(status, 200);
    EXPECT_NE(body.find("data: [DONE]\n\n"), std::string::npos) << body;
}

}  // namespace
}  // namespace nulo::service
