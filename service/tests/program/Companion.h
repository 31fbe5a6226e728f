#pragma once

#include <gmock/gmock.h>
#include <httplib.h>

#include <future>
#include <latch>
#include <mutex>
#include <nlohmann/json.hpp>

#include "Form.h"
#include "RawClient.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/WaitUntil.h"
#include "service/app/SpeechApi.h"
#include "service/gateway/GatewayCleanup.h"
#include "service/gateway/GatewayRecogniser.h"
#include "service/http/HttpServer.h"
#include "service/offline/OfflineRecogniser.h"
#include "service/offline/RuleCleanup.h"

namespace nulo::service {

using nlohmann::json;
using Connection = ScriptedHttpServer::Connection;
using std::chrono::milliseconds;

/// The whole service in this process, with an offline engine that hears when the test says so.
class CompanionTest : public testing::Test {
  protected:
    explicit CompanionTest(HttpServer::Limits serverLimits = {}, ProviderCalls::Limits limits = {})
        : calls(
              client, systemClock(), [this](milliseconds duration) { slept += duration.count(); },
              print, metrics, limits),
          server(systemClock(), print, serverLimits,
                 [this](const RequestHead& head) { return api.accept(head); }) {
        const auto socket = openSocket("127.0.0.1", 0).value();
        EXPECT_TRUE(server.start(socket, std::nullopt));
        port = socket.port;
        running = std::thread([this] { server.run(); });
    }
    ~CompanionTest() override {
        letGo();
        server.finish();
        running.join();
        for (const char* secret : {"sk-secret", "spoken"})
            EXPECT_EQ(log.find(secret), std::string::npos) << log;
    }

    void letGo() {
        if (!m_letGo.try_wait())
            m_letGo.count_down();
    }
    std::string logged() {
        const std::scoped_lock lock(mutex);
        return log;
    }

    httplib::Client nulo() const {
        httplib::Client one("127.0.0.1", port);
        one.set_read_timeout(60);
        return one;
    }
    httplib::Result transcribe(std::vector<std::pair<std::string, std::string>> fields = {}) const {
        fields.emplace_back("file", speech("0880"));
        return nulo().Post("/api/transcribe", formOf(fields), formType);
    }
    httplib::Result combined() const {
        return transcribe(
            {{"provider", "openai"}, {"cleanup_prompt", "Tidy."}, {"cleanup_model", "mistral"}});
    }

    std::mutex mutex;
    std::string log;  // under mutex
    const Print print = [this](std::string_view line) {
        const std::scoped_lock lock(mutex);
        log += std::string(line) + "\n";
    };
    std::atomic<long> slept = 0;  // milliseconds
    std::atomic<int> hearing = 0;
    GatewayConfig config;
    Metrics metrics;
    UpstreamClient client{{}};
    ProviderCalls calls;

  private:
    struct HeldEngine final : SpeechEngine {
        explicit HeldEngine(CompanionTest& one) : test(one) {}
        bool knowsEnglishOnly() const override { return true; }
        Transcript hear(std::span<const std::int16_t>, const SpeechHints&,
                        const StillWanted&) override {
            ++test.hearing;
            test.m_letGo.wait();
            return {"um spoken words", "en"};
        }
        CompanionTest& test;
    };
    std::latch m_letGo{1};

  protected:
    OfflineRecogniser offline{
        [this] {
            return Result<std::unique_ptr<SpeechEngine>>(std::make_unique<HeldEngine>(*this));
        },
        {.atOnce = 1, .waiting = 0}};
    RuleCleanup rules;
    GatewayRecogniser recogniser{config, calls, offline};
    GatewayCleanup cleanup{config, calls, rules};
    SpeechApi api{recogniser, cleanup, RequestGuard({}), systemClock(), "1.2", UpdateFolder({})};
    HttpServer server;
    int port = 0;
    std::thread running;
};

}  // namespace nulo::service
