#include "service/http/HttpServer.h"

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
    explicit HttpServerTest(HttpServer::Limits limits = {})
        : server(
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
    OfflineRecogniser recogniser{[this, future = release.get_future().share()] {
                                     return Result<std::unique_ptr<SpeechEngine>>(
                                         std::make_unique<HeldEngine>(hearing, future));
                                 },
                                 {.atOnce = 1, .waiting = 0},
                                 OfflineRecogniser::Languages::english};
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

class OneConnectionTest : public HttpServerTest {
  protected:
    OneConnectionTest()
        : HttpServerTest({.head = std::chrono::milliseconds(300), .connections = 1}) {}
};

// A client that dribbles a head, or sends none, must not keep the others out for ever.
TEST_F(OneConnectionTest, outlastsASlowHead) {
    const int slow = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(connect(slow, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(send(slow, "GET /api/", 9, 0), 9);
    EXPECT_EQ(httplib::Client("127.0.0.1", port).Get("/api/version")->status, 200);
    close(slow);
}

}  // namespace
}  // namespace nulo::service
