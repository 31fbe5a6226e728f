#include "service/SpeechApi.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <nlohmann/json.hpp>

#include "service/gateway/EventStream.h"
#include "service/gateway/Routing.h"
#include "service/http/ConnectionStream.h"
#include "service/http/TranscribeForm.h"

namespace nulo::service {
namespace {

using nlohmann::json;

constexpr const char* plainText = "text/plain; charset=utf-8";
constexpr std::size_t largestChat = 1024 * 1024;

enum class Access { open, withToken };

struct Endpoint {
    std::string_view path;
    std::string_view methods;  // as in an Allow header
    Access access;
};
/// The version is open: clients ask for it to open a connection ahead of time, and to find updates,
/// both without credentials. So are the updates themselves.
constexpr std::array endpoints = {
    Endpoint{"/api/transcribe", "POST", Access::withToken},
    Endpoint{"/api/chat", "POST", Access::withToken},
    Endpoint{"/api/version", "GET, HEAD", Access::open},
    Endpoint{"/healthz", "GET, HEAD", Access::open},
    Endpoint{"/metrics", "GET, HEAD", Access::withToken},
};
constexpr Endpoint updateEndpoint{"", "GET, HEAD", Access::open};

const Endpoint* endpointOf(const std::string& path) {
    if (UpdateFolder::serves(path))
        return &updateEndpoint;
    const auto endpoint = std::ranges::find(endpoints, path, &Endpoint::path);
    return endpoint == endpoints.end() ? nullptr : &*endpoint;
}

bool allows(const Endpoint& endpoint, const std::string& method) {
    return (", " + std::string(endpoint.methods) + ",").find(", " + method + ",") !=
           std::string::npos;
}

/// Whether a body's length is stated once and clearly, and is small enough.
std::optional<Failure> refusedLength(const httplib::Request& request) {
    const bool chunked = request.has_header("Transfer-Encoding");
    const std::size_t lengths = request.get_header_value_count("Content-Length");
    if (!chunked && lengths == 0)
        return Failure{411, "The request does not say how long it is. Send Content-Length.\n"};
    if (lengths > 1 || (chunked && lengths > 0))
        return Failure{400, "The request states its length twice. Send one Content-Length.\n"};
    if (chunked)
        return std::nullopt;  // counted as it arrives
    const std::string text = request.get_header_value("Content-Length");
    std::uint64_t length = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, length);
    if (error == std::errc::result_out_of_range || (error == std::errc() && length > largestBody))
        return bodyTooLarge();
    if (error != std::errc() || stop != end)
        return Failure{400, "Content-Length is not a number. Send the body's length in bytes.\n"};
    return std::nullopt;
}

void answer(httplib::Response& response, const Failure& failure) {
    response.status = failure.status;
    response.set_content(failure.text, plainText);
    if (failure.status == 401)
        response.set_header("WWW-Authenticate", "Bearer");
    if (failure.retryAfterSeconds)
        response.set_header("Retry-After", std::to_string(*failure.retryAfterSeconds));
}

/// For failures of requests that the library refuses by itself.
std::string textFor(int status) {
    switch (status) {
        case 400:
            return "The request cannot be understood. Send it as HTTP/1.1.\n";
        case 414:
            return "The address of the request is too long.\n";
        default:
            return "The request failed with status " + std::to_string(status) + ".\n";
    }
}

Failure badChat(const std::string& why) {
    return {400, why +
                     " Send {\"model\": …, \"stream\": true, \"messages\": [{\"role\": \"user\", "
                     "\"content\": …}]}.\n"};
}

Result<CleanupRequest, Failure> parsedChat(const std::string& body) {
    const json chat = json::parse(body, nullptr, false);
    if (!chat.is_object())
        return badChat("The body is not a JSON object.");
    if (const auto stream = chat.find("stream"); stream == chat.end() || *stream != true)
        return badChat("Answers are streamed only.");
    CleanupRequest request;
    if (const auto model = chat.find("model"); model != chat.end()) {
        if (!model->is_string())
            return badChat("\"model\" is not a text.");
        request.model = *model;
    }
    const auto messages = chat.find("messages");
    if (messages == chat.end() || !messages->is_array())
        return badChat("There is no list of messages.");
    bool hasText = false;
    for (const json& message : *messages) {
        const bool complete = message.is_object() && message.contains("role") &&
                              message.contains("content") && message["role"].is_string() &&
                              message["content"].is_string();
        if (!complete)
            return badChat("A message has no role or no content.");
        request.messages.push_back({message["role"], message["content"]});
        if (message["role"] == "user") {
            request.text = message["content"];
            hasText = true;
        }
    }
    if (!hasText)
        return badChat("There is no message of the user.");
    return request;
}

}  // namespace

SpeechApi::SpeechApi(Recogniser& recogniser, Cleanup& cleanup, RequestGuard guard,
                     const Clock& clock, std::string version, UpdateFolder updates)
    : m_recogniser(recogniser),
      m_cleanup(cleanup),
      m_guard(std::move(guard)),
      m_clock(clock),
      m_version(std::move(version)),
      m_updates(std::move(updates)) {}

void SpeechApi::attachTo(httplib::Server& server) {
    using httplib::ContentReader;
    using httplib::Request;
    using httplib::Response;
    server.set_default_headers({{"Cache-Control", "no-store"}});
    // A refused body is not read, so nothing can follow on its connection.
    server.set_pre_routing_handler([this](const Request& request, Response& response) {
        const auto refused = refusal(request);
        if (!refused)
            return httplib::Server::HandlerResponse::Unhandled;
        response.set_header("Connection", "close");
        answer(response, *refused);
        if (const Endpoint* endpoint = endpointOf(request.path); endpoint && refused->status == 405)
            response.set_header("Allow", std::string(endpoint->methods));
        return httplib::Server::HandlerResponse::Handled;
    });
    // Spares a client that asks first the sending of a body that would be refused.
    server.set_expect_100_continue_handler([this](const Request& request, Response& response) {
        const auto refused = refusal(request);
        if (!refused)
            return 100;
        response.set_header("Connection", "close");
        answer(response, *refused);
        return refused->status;
    });
    server.set_error_handler([](const Request&, Response& response) {
        if (response.body.empty())
            response.set_content(textFor(response.status), plainText);
    });
    server.set_exception_handler([](const Request&, Response& response, std::exception_ptr) {
        answer(response, {500, "The service failed. Try again; if it stays so, restart it.\n"});
    });
    server.Get("/api/version",
               [this](const Request& request, Response& response) { version(request, response); });
    server.Get("/healthz",
               [](const Request&, Response& response) { response.set_content("ok\n", plainText); });
    server.Get("/metrics", [this](const Request&, Response& response) {
        response.set_content(onMetrics(), "text/plain; version=0.0.4");
    });
    for (const char* pattern : {"/update\\.sh", "/updates/.*"})
        server.Get(pattern, [this](const Request& request, Response& response) {
            update(request, response);
        });
    server.Post("/api/transcribe",
                [this](const Request& request, Response& response, const ContentReader& content) {
                    transcribe(request, response, content);
                });
    server.Post("/api/chat",
                [this](const Request& request, Response& response, const ContentReader& content) {
                    chat(request, response, content);
                });
}

std::optional<Failure> SpeechApi::refusal(const httplib::Request& request) const {
    const RequestGuard::Credentials credentials{request.get_header_value("Host"),
                                                request.get_header_value("Origin"),
                                                request.get_header_value("Authorization")};
    if (auto refused = m_guard.refusedSender(credentials))
        return refused;
    const Endpoint* endpoint = endpointOf(request.path);
    if (!endpoint)
        return Failure{404,
                       "There is nothing here. The endpoints are /api/transcribe, /api/chat, "
                       "/api/version, /healthz, /metrics, /update.sh and /updates/NAME.\n"};
    if (!allows(*endpoint, request.method))
        return Failure{405, "Use " + std::string(endpoint->methods) + " here.\n"};
    if (endpoint->access == Access::withToken)
        if (auto refused = m_guard.refusedToken(credentials))
            return refused;
    return request.method == "POST" ? refusedLength(request) : std::nullopt;
}

/// Its own version unless an update is offered, so that nobody finds a newer one here.
void SpeechApi::version(const httplib::Request&, httplib::Response& response) const {
    if (const auto offered = m_updates.versionInfo())
        return response.set_content(*offered, "application/json");
    const json info = {{"version", m_version},
                       {"build", 0},
                       {"downloadUrl", ""},
                       {"releaseNotes", ""},
                       {"minVersion", "0.0"}};
    response.set_content(info.dump() + "\n", "application/json");
}

void SpeechApi::update(const httplib::Request& request, httplib::Response& response) const {
    if (!m_updates.answer(request.path, response))
        answer(response, {404, "No such update is configured on this service.\n"});
}

void SpeechApi::transcribe(const httplib::Request& request, httplib::Response& response,
                           const httplib::ContentReader& content) {
    const auto start = m_clock.now();
    auto form = readTranscribeForm(request, content);
    if (!form)
        return answer(response, form.error());
    const auto uploaded = m_clock.now();
    auto text = m_recogniser.recognise(form.value().take, clientProbe());
    if (!text)
        return answer(response, text.error());
    const auto transcribed = m_clock.now();
    response.set_header("X-Upload-Ms", std::to_string(wholeMilliseconds(uploaded - start)));
    response.set_header("X-Transcription-Ms",
                        std::to_string(wholeMilliseconds(transcribed - uploaded)));
    auto& [take, cleanupPrompt, cleanupModel] = form.value();
    if (!cleanupPrompt) {
        response.status = 200;
        response.set_content(std::move(text).value(), plainText);
        return;
    }
    CleanupRequest cleanup{text.value(), {}, chatModelFor(cleanupModel)};
    cleanup.messages = {{"system", std::move(*cleanupPrompt)}, {"user", std::move(text).value()}};
    streamCleanup(std::move(cleanup), response);
}

void SpeechApi::chat(const httplib::Request& request, httplib::Response& response,
                     const httplib::ContentReader& content) {
    if (!formType(request).empty())
        return answer(response, badChat("The body is a form, not JSON."));
    std::string body;
    bool fits = true;
    const bool whole = content([&](const char* data, std::size_t length) {
        fits = body.size() + length <= largestChat;
        if (fits)
            body.append(data, length);
        return fits;
    });
    if (!fits)
        return answer(response, {413, "The text is longer than 1 MB. Send it in pieces.\n"});
    if (!whole)
        return answer(response, badChat("The body broke off."));
    auto chat = parsedChat(body);
    if (!chat)
        return answer(response, chat.error());
    streamCleanup(std::move(chat).value(), response);
}

void SpeechApi::streamCleanup(CleanupRequest request, httplib::Response& response) {
    auto text = m_cleanup.start(std::move(request), clientProbe());
    if (!text)
        return answer(response, text.error());
    response.status = 200;
    response.set_header("X-Accel-Buffering", "no");  // proxies that collect answers leave it alone
    response.set_chunked_content_provider(
        "text/event-stream",
        [stream = std::move(text).value()](std::size_t, httplib::DataSink& sink) {
            const auto send = [&sink](std::string_view event) {
                return sink.write(event.data(), event.size());
            };
            const bool whole =
                stream([&](std::string_view fragment) { return send(textEvent(fragment)); });
            if (!whole || !send(endEvent))
                return false;
            sink.done();
            return true;
        });
}

}  // namespace nulo::service
