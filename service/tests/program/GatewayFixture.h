#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <httplib.h>

#include <future>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>

#include "Form.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/WaitUntil.h"
#include "service/SpeechApi.h"
#include "service/gateway/GatewayCleanup.h"
#include "service/gateway/GatewayRecogniser.h"
#include "service/http/HttpServer.h"
#include "service/offline/OfflineRecogniser.h"
#include "service/offline/RuleCleanup.h"
#include "service/offline/Sha256.h"

namespace nulo::service {

using nlohmann::json;
using Connection = ScriptedHttpServer::Connection;
using std::chrono::milliseconds;

inline const std::string streamHead =
    "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nTransfer-Encoding: chunked\r\n\r\n";

inline std::string token(const std::string& text) {
    return "data: " + json{{"choices", {{{"delta", {{"content", text}}}}}}}.dump() + "\n\n";
}
inline std::string streamOf(const std::vector<std::string>& texts) {
    std::string stream = streamHead;
    for (const std::string& text : texts)
        stream += httpChunk(token(text));
    return stream + httpChunk("data: [DONE]\n\n") + httpChunk("");
}
inline std::string jsonAnswer(int status, const json& body, std::vector<std::string> headers = {}) {
    headers.push_back("Content-Type: application/json");
    return httpResponse(status, body.dump(), headers);
}

/// Words of the answer's events, and whether it ended as it should.
inline std::pair<std::string, bool> textOf(const std::string& stream) {
    std::istringstream lines(stream);
    std::string text;
    for (std::string line; std::getline(lines, line);) {
        if (line == "data: [DONE]")
            return {text, true};
        if (!line.empty())
            text += json::parse(line.substr(6))["choices"][0]["delta"]["content"];
    }
    return {text, false};
}

/// The gateway in this process, with both vendors' parts played by one scripted server.
class GatewayTest : public testing::Test {
  protected:
    explicit GatewayTest(ProviderCalls::Limits limits = {}, HttpServer::Limits serverLimits = {})
        : calls(
              client, systemClock(),
              [this](milliseconds duration) {
                  const std::scoped_lock lock(mutex);
                  slept += duration;
              },
              [this](std::string_view line) { keepLine(line); }, metrics, limits),
          server(
              systemClock(), [this](std::string_view line) { keepLine(line); }, serverLimits,
              [this](const RequestHead& head) { return api.accept(head); }) {
        config.providers = {
            {"openai", upstream.url("/openai/v1"), "sk-secret-one", "", ""},
            {"mistral", upstream.url("/mistral/v1"), "sk-secret-two", "", ""},
        };
        api.onMetrics = [this] { return metrics.text(); };
        const auto socket = openSocket("127.0.0.1", 0).value();
        EXPECT_TRUE(server.start(socket, std::nullopt));
        port = socket.port;
        running = std::thread([this] { server.run(); });
    }
    ~GatewayTest() override {
        upstream.stop();
        server.finish();
        running.join();
        EXPECT_EQ(log.find("sk-secret"), std::string::npos) << log;
        EXPECT_EQ(log.find("spoken"), std::string::npos) << log;
    }

    /// What the upstream does with "…/audio/transcriptions" and "…/chat/completions".
    using Part = std::function<void(const ReceivedRequest&, Connection&)>;
    static Part says(std::string bytes) {
        return [bytes = std::move(bytes)](const ReceivedRequest&, Connection& connection) {
            connection.send(bytes);
        };
    }
    void play(Part transcriptions, Part chat = {}) {
        const std::scoped_lock lock(mutex);
        m_transcriptions = std::move(transcriptions);
        m_chat = std::move(chat);
    }

    httplib::Client nulo() const {
        httplib::Client one("127.0.0.1", port);
        one.set_read_timeout(60);
        return one;
    }
    httplib::Result transcribe(const std::string& provider = "openai") const {
        return checked(nulo().Post("/api/transcribe",
                                   formOf({{"provider", provider}, {"file", speech("0880")}}),
                                   formType));
    }
    httplib::Result combined() const {
        return checked(nulo().Post("/api/transcribe",
                                   formOf({{"provider", "openai"},
                                           {"cleanup_prompt", "Tidy."},
                                           {"cleanup_model", "mistral"},
                                           {"file", speech("0880")}}),
                                   formType));
    }
    static std::string question(const std::string& model = "gpt-5.4-mini",
                                const std::string& text = "what was spoken") {
        return json{{"model", model},
                    {"stream", true},
                    {"messages",
                     {{{"role", "system"}, {"content", "Tidy \"it\".\n"}},
                      {{"role", "user"}, {"content", text}}}}}
            .dump();
    }
    httplib::Result chat(const std::string& body = question()) const {
        return checked(nulo().Post("/api/chat", body, "application/json"));
    }
    /// A socket on which a chat was asked, for clients that do not behave; -1 when that failed.
    int askChatOnSocket(std::optional<int> receiveBuffer = std::nullopt) const {
        const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
        if (receiveBuffer)
            setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &*receiveBuffer, sizeof *receiveBuffer);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const std::string body = question();
        const std::string request =
            "POST /api/chat HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n"
            "Content-Length: " +
            std::to_string(body.size()) + "\r\n\r\n" + body;
        const bool sent =
            connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
            send(socket, request.data(), request.size(), 0) == ssize_t(request.size());
        if (sent)
            return socket;
        close(socket);
        return -1;
    }
    /// What a client gets of a chat, also when it is cut short.
    std::pair<std::string, bool> chatSoFar() const {
        std::string bytes;
        httplib::Request request;
        request.method = "POST";
        request.path = "/api/chat";
        request.body = question();
        request.set_header("Content-Type", "application/json");
        request.content_receiver = [&](const char* data, std::size_t size, std::uint64_t,
                                       std::uint64_t) {
            bytes.append(data, size);
            return true;
        };
        const auto answer = nulo().send(request);
        const auto [text, ended] = textOf(bytes);
        EXPECT_EQ(bool(answer), ended);  // broken for the client's HTTP library too
        return {text, ended};
    }
    static httplib::Result checked(httplib::Result answer) {
        if (answer) {
            EXPECT_EQ(answer->body.find("sk-secret"), std::string::npos) << answer->body;
            if (answer->status != 200) {
                EXPECT_EQ(answer->body.back(), '\n');
            }
        }
        return answer;
    }
    void keepLine(std::string_view line) {
        const std::scoped_lock lock(mutex);
        log += std::string(line) + "\n";
    }
    std::string logged() {
        const std::scoped_lock lock(mutex);
        return log;
    }

    std::mutex mutex;
    std::string log;  // with the next, under mutex
    milliseconds slept{0};
    GatewayConfig config;
    Metrics metrics;
    UpstreamClient client{{}};
    ProviderCalls calls;
    OfflineRecogniser offline{
        [] { return Result<std::unique_ptr<SpeechEngine>>(Error{"none here"}); },
        {.atOnce = 1, .waiting = 0},
        OfflineRecogniser::Languages::english};
    RuleCleanup rules;
    GatewayRecogniser recogniser{config, calls, offline};
    GatewayCleanup cleanup{config, calls, rules};
    SpeechApi api{recogniser, cleanup, RequestGuard({}), systemClock(), "1.2", UpdateFolder({})};
    HttpServer server;
    int port = 0;
    std::thread running;

  private:
    Part m_transcriptions, m_chat;  // mutex

  protected:
    ScriptedHttpServer upstream{[this](const ReceivedRequest& request, Connection& connection) {
        std::unique_lock lock(mutex);
        const bool isChat = request.target.ends_with("/v1/chat/completions");
        const Part part = isChat ? m_chat : m_transcriptions;
        lock.unlock();
        if (part && (isChat || request.target.ends_with("/v1/audio/transcriptions")))
            part(request, connection);
        else
            connection.close();
    }};
};

}  // namespace nulo::service
