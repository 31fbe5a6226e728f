#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <thread>

#include "ConfiguredService.h"
#include "Form.h"
#include "rig/http/ScriptedHttpServer.h"
#include "service/http/Spool.h"
#include "service/offline/Sha256.h"

namespace nulo::service {
namespace {

// Threads, files or memory must not run out where a whole office dictates.
TEST(GatewayProgram, servesTwoHundredUploadsAtOnce) {
    const std::string voice = speech("0880");
    std::string large = voice;
    while (large.size() < Spool::mostInMemory + 4096)  // so that every one of them is on disk
        large += voice.substr(44);
    std::atomic<int> waiting = 0;
    ScriptedHttpServer* self = nullptr;
    ScriptedHttpServer upstream([&](const ReceivedRequest& request, auto& connection) {
        const bool whole = request.body.size() > large.size();
        if (++waiting == 200)
            self->release();  // all are in flight
        connection.stall();
        connection.send(httpResponse(whole ? 200 : 400, "spoken"));
    });
    self = &upstream;
    const ConfiguredService configured(openAiAt(upstream));
    const Service& service = configured.service;
    const std::string form = formOf({{"provider", "openai"}, {"file", large}});
    std::vector<std::thread> people;
    std::atomic<int> served = 0;
    for (int i = 0; i < 200; ++i)
        people.emplace_back([&] {
            const auto answer = service.client().Post("/api/transcribe", form, formType);
            served += answer && answer->status == 200 && answer->body == "spoken";
        });
    for (std::thread& person : people)
        person.join();
    EXPECT_EQ(served, 200);
    const std::string metrics = service.client().Get("/metrics")->body;
    for (const char* line :
         {"# TYPE nulo_upstream_in_flight gauge\nnulo_upstream_in_flight 0\n",
          "nulo_upstream_answers_total{provider=\"openai\",status=\"200\"} 200\n"})
        EXPECT_NE(metrics.find(line), std::string::npos) << metrics;
    EXPECT_EQ(service.client().Get("/healthz")->body, "ok\n");
    EXPECT_EQ(service.log().find("sk-secret"), std::string::npos);
}

TEST(GatewayProgram, finishesTheStreamInFlightWhenItIsStopped) {
    std::atomic<bool> asked = false;
    ScriptedHttpServer upstream([&](const ReceivedRequest&, auto& connection) {
        asked = true;
        connection.stall();
        const std::string stream =
            "data: {\"choices\":[{\"delta\":{\"content\":\"spoken\"}}]}\n\ndata: [DONE]\n\n";
        connection.send(httpResponse(200, stream, {"Content-Type: text/event-stream"}));
    });
    ConfiguredService configured(openAiAt(upstream));
    Service& service = configured.service;
    std::string body;
    std::thread client([&] {
        const auto answer = service.client().Post(
            "/api/chat",
            R"({"model":"gpt-5.4-mini","stream":true,"messages":[{"role":"user","content":"a"}]})",
            "application/json");
        body = answer ? answer->body : "none";
    });
    ASSERT_TRUE(waitUntil([&] { return asked.load(); }));
    service.process().signal(SIGTERM);
    ASSERT_TRUE(waitUntil([&] { return !service.client().Get("/healthz"); }));
    upstream.release();
    client.join();
    EXPECT_NE(body.find("spoken"), std::string::npos) << body;
    EXPECT_NE(body.find("data: [DONE]"), std::string::npos) << body;
    EXPECT_EQ(service.process().wait(std::chrono::seconds(30)), 0) << service.log();
}

/// A certificate for this machine's address and its key, in `folder`.
void makeCertificate(const TemporaryFolder& folder) {
    outputOf({"openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj",
              "/CN=localhost", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout",
              folder / "key.pem", "-out", folder / "certificate.pem"});
}

TEST(GatewayProgram, speaksTlsToThoseWhoHaveAToken) {
    const TemporaryFolder folder;
    makeCertificate(folder);
    const ConfiguredService configured(R"({"tls": {"certificate": ")" +
                                       (folder / "certificate.pem").string() + R"(", "key": ")" +
                                       (folder / "key.pem").string() + R"("}, "tokens": [")" +
                                       sha256("a person's token") + R"("]})");
    httplib::SSLClient client("127.0.0.1", configured.service.port);
    client.set_ca_cert_path(folder / "certificate.pem");
    client.set_keep_alive(true);
    client.set_read_timeout(90);
    EXPECT_EQ(client.Get("/healthz")->body, "ok\n");
    EXPECT_EQ(client.Get("/metrics")->status, 401);
    EXPECT_FALSE(configured.service.client().Get("/healthz"));  // no TLS, and it lives on
    client.set_bearer_token_auth("a person's token");
    const std::string form = formOf({{"cleanup_prompt", ""}, {"file", speech("0880")}});
    for (int i = 0; i < 2; ++i) {
        const auto answer = client.Post("/api/transcribe", form, formType);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->status, 200);
        EXPECT_NE(answer->body.find("young"), std::string::npos);
        EXPECT_TRUE(answer->body.ends_with("data: [DONE]\n\n"));
    }

    std::ofstream(folder / "nulo-service.json")
        << R"({"tls": {"certificate": "certificate.pem", "key": "certificate.pem"}})";
    ChildProcess wrong({program, "--check", "--config", folder / "nulo-service.json"},
                       {{}, folder / "log"});
    EXPECT_EQ(wrong.wait(std::chrono::seconds(30)), 1);
    std::ostringstream log;
    log << std::ifstream(folder / "log").rdbuf();
    EXPECT_NE(log.str().find("tls.key"), std::string::npos) << log.str();
}

// A proxy of the environment would get the recordings of the user's own server.
TEST(GatewayProgram, asksServersOfThisMachineWithoutAProxy) {
    ScriptedHttpServer proxy([](const ReceivedRequest&, auto& connection) {
        connection.send(httpResponse(200, "proxy"));
    });
    ScriptedHttpServer upstream([](const ReceivedRequest&, auto& connection) {
        connection.send(httpResponse(200, "own"));
    });
    setenv("http_proxy", proxy.url().c_str(), 1);
    const ConfiguredService configured(openAiAt(upstream));
    unsetenv("http_proxy");
    const auto answer = configured.service.client().Post(
        "/api/transcribe", formOf({{"file", speech("0880")}}), formType);
    EXPECT_EQ(answer->body, "own");
    EXPECT_EQ(proxy.acceptedConnections(), 0);
}

}  // namespace
}  // namespace nulo::service
