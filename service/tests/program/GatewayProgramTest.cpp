#include <atomic>
#include <thread>

#include "Form.h"
#include "ServiceProgram.h"
#include "service/Sha256.h"
#include "service/Spool.h"
#include "service/http/Tls.h"

namespace nulo::service {
namespace {

// Threads, files or memory must not run out where a whole office dictates.
TEST(GatewayProgram, servesTwoHundredUploadsAtOnce) {
    // Every one of them is on disk.
    const std::string large = speechWav(std::vector<std::int16_t>(Spool::mostInMemory, 9000));
    std::atomic<int> waiting = 0;
    ScriptedHttpServer upstream([&](const ReceivedRequest& request, auto& connection) {
        ++waiting;
        connection.stall();
        connection.send(httpResponse(request.body.size() > large.size() ? 200 : 400, "spoken"));
    });
    const Service service({}, R"({"providers": {"openai": {"apiKey": "sk-secret", "baseURL": ")" +
                                  upstream.url("/v1") + R"("}}})");
    const std::string form = formOf({{"provider", "openai"}, {"file", large}});
    std::vector<std::thread> people;
    std::atomic<int> served = 0;
    for (int i = 0; i < 200; ++i)
        people.emplace_back([&] {
            const auto answer = service.client().Post("/api/transcribe", form, formType);
            served += answer && answer->status == 200 && answer->body == "spoken";
        });
    EXPECT_TRUE(waitUntil([&] { return waiting == 200; }, std::chrono::seconds(60)));
    upstream.release();
    for (std::thread& person : people)
        person.join();
    EXPECT_EQ(served, 200);
    const std::string metrics = service.client().Get("/metrics")->body;
    for (const char* line :
         {"# TYPE nulo_upstream_in_flight gauge\nnulo_upstream_in_flight 0\n",
          "nulo_upstream_answers_total{provider=\"openai\",status=\"200\"} 200\n"})
        EXPECT_NE(metrics.find(line), std::string::npos) << metrics;
    EXPECT_EQ(service.log().find("sk-secret"), std::string::npos);
}

TEST(GatewayProgram, speaksTlsToThoseWhoHaveAToken) {
    const TemporaryFolder folder;
    const std::string key = folder / "key.pem";
    const std::string certificate = folder / "certificate.pem";
    outputOf({"openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj",
              "/CN=localhost", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out",
              certificate});
    const Service service({}, R"({"tls": {"certificate": ")" + certificate + R"(", "key": ")" +
                                  key + R"("}, "tokens": [")" + sha256("a person's token") +
                                  R"("]})");
    httplib::SSLClient client("127.0.0.1", service.port);
    client.set_ca_cert_path(certificate);
    client.set_read_timeout(90);
    EXPECT_EQ(client.Get("/healthz")->body, "ok\n");
    EXPECT_EQ(client.Get("/metrics")->status, 401);
    EXPECT_FALSE(service.client().Get("/healthz"));  // no TLS, and it lives on
    client.set_bearer_token_auth("a person's token");
    const std::string form = formOf({{"cleanup_prompt", ""}, {"file", speech("0880")}});
    EXPECT_NE(client.Post("/api/transcribe", form, formType)->body.find("young"),
              std::string::npos);
    EXPECT_NE(loadTlsIdentity({certificate, certificate}).error().description.find("tls.key"),
              std::string::npos);
}

}  // namespace
}  // namespace nulo::service
