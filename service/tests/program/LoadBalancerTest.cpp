#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <regex>

#include "ConfiguredService.h"
#include "Form.h"
#include "base/FileIO.h"
#include "rig/http/ScriptedHttpServer.h"

namespace nulo::service {
namespace {

void replace(std::string& text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    text.replace(at, from.size(), to);
}

/// A port that was free a moment ago.
int freePort() {
    return ScriptedHttpServer([](const ReceivedRequest&, auto&) {}).port();
}

// The documented example: it spreads the work, holds no stream back and outlives a companion.
TEST(LoadBalancer, spreadsTheWorkOverTwoCompanions) {
    ScriptedHttpServer* self = nullptr;
    std::atomic<bool> stalls = true;
    ScriptedHttpServer upstream([&](const ReceivedRequest&, auto& connection) {
        const auto word = [](const std::string& text) {
            return httpChunk("data: {\"choices\":[{\"delta\":{\"content\":\"" + text +
                             "\"}}]}\n\n");
        };
        connection.send(
            "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n"
            "Transfer-Encoding: chunked\r\n\r\n" +
            word("One"));
        if (stalls)
            connection.stall();
        connection.send(word("Two") + httpChunk("data: [DONE]\n\n") + httpChunk(""));
    });
    self = &upstream;
    const ConfiguredService one(openAiAt(upstream));
    ConfiguredService two(openAiAt(upstream));
    const int port = freePort();
    const TemporaryFolder folder;
    std::string text = readFile(NULO_DOCS "/haproxy.cfg", 1 << 20).value();
    replace(text, "127.0.0.1:8700", "127.0.0.1:" + std::to_string(port));
    replace(text, "127.0.0.1:8737", "127.0.0.1:" + std::to_string(one.service.port));
    replace(text, "127.0.0.1:8738", "127.0.0.1:" + std::to_string(two.service.port));
    std::ofstream(folder / "haproxy.cfg") << text;
    ChildProcess proxy({"/usr/sbin/haproxy", "-db", "-f", folder / "haproxy.cfg"},
                       {{}, folder / "log"});
    httplib::Client client("127.0.0.1", port);
    client.set_read_timeout(60);
    ASSERT_TRUE(waitUntil([&] {
        const auto answer = client.Get("/healthz");
        return answer && answer->body == "ok\n";
    })) << readFile(folder / "log", 1 << 20).value_or("");

    httplib::Request request;
    request.method = "POST";
    request.path = "/api/chat";
    request.body =
        R"({"model":"gpt-5.4-mini","stream":true,"messages":[{"role":"user","content":"a"}]})";
    std::string bytes;
    request.content_receiver = [&](const char* data, std::size_t size, std::uint64_t,
                                   std::uint64_t) {
        bytes.append(data, size);
        self->release();  // the rest comes only once the first word is here
        return true;
    };
    ASSERT_TRUE(client.send(request));
    EXPECT_TRUE(bytes.find("Two") != std::string::npos && bytes.ends_with("data: [DONE]\n\n"));
    stalls = false;
    const auto chat = [&] {
        const auto answer = client.Post("/api/chat", request.body, "application/json");
        return answer && answer->status == 200 && answer->body.ends_with("data: [DONE]\n\n");
    };
    const std::string served = "POST /api/chat 200";
    EXPECT_TRUE(waitUntil([&] {
        EXPECT_TRUE(chat());
        return one.service.log().find(served) != std::string::npos &&
               two.service.log().find(served) != std::string::npos;
    }));
    two.service.process().signal(SIGTERM);
    ASSERT_EQ(two.service.process().wait(std::chrono::seconds(30)), 0);
    for (int i = 0; i < 10; ++i)
        EXPECT_TRUE(chat()) << i;
}

}  // namespace
}  // namespace nulo::service
