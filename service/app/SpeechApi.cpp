#include "service/app/SpeechApi.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <nlohmann/json.hpp>

#include "service/gateway/Routing.h"
#include "service/http/EventStream.h"

namespace nulo::service {
namespace {

using nlohmann::json;

constexpr const char* plainText = "text/plain; charset=utf-8";
constexpr std::size_t largestBody = 25 * 1024 * 1024;  // a form and the recording in it
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
std::optional<Failure> refusedLength(const RequestHead& head) {
    // Chunks could go on for ever, and their ends are read in more than one way.
    if (head.count("Content-Length") == 0 || head.count("Transfer-Encoding") > 0)
        return Failure{411, "The request does not say how long it is. Send Content-Length.\n"};
    const std::string text = head.header("Content-Length");
    std::uint64_t length = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, length);
    if (error == std::errc::result_out_of_range || (error == std::errc() && length > largestBody))
        return Failure{413, "The request is larger than 25 MB. Send a shorter recording.\n"};
    if (error != std::errc() || stop != end)
        return Failure{400, "Content-Length is not a number. Send the body's length in bytes.\n"};
    return std::nullopt;
}

std::optional<Failure> refusedBody(const RequestHead& head) {
    const bool isEmpty = head.count("Transfer-Encoding") == 0 &&
                         head.count("Content-Length") <= 1 &&
                         head.header("Content-Length").find_first_not_of('0') == std::string::npos;
    if (isEmpty)
        return std::nullopt;
    return Failure{400, "The request has a body. Send none here.\n"};
}

Intake withoutBody(std::function<Answer()> make) {
    return {[](std::string_view) { return std::nullopt; },
            [make = std::move(make)](Exchange& exchange) { exchange.answer(make()); }};
}

Answer streamHead(const Headers& headers) {
    Answer head(200, "text/event-stream", "", headers);
    // Proxies that collect answers leave it alone.
    head.headers.emplace_back("X-Accel-Buffering", "no");
    return head;
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

std::optional<Answer> SpeechApi::refusal(const RequestHead& head) const {
    if (const auto refused = m_guard.refusedSender(head))
        return Answer(*refused);
    const Endpoint* endpoint = endpointOf(head.path);
    if (!endpoint)
        return Answer(
            Failure{404,
                    "There is nothing here. The endpoints are /api/transcribe, /api/chat, "
                    "/api/version, /healthz, /metrics, /update.sh and /updates/NAME.\n"});
    if (!allows(*endpoint, head.method)) {
        const std::string methods(endpoint->methods);
        Answer answer(Failure{405, "Use " + methods + " here.\n"});
        answer.headers.emplace_back("Allow", methods);
        return answer;
    }
    if (endpoint->access == Access::withToken)
        if (const auto refused = m_guard.refusedToken(head))
            return Answer(*refused);
    if (const auto refused = head.method == "POST" ? refusedLength(head) : refusedBody(head))
        return Answer(*refused);
    return std::nullopt;
}

Result<Intake, Answer> SpeechApi::accept(const RequestHead& head) const {
    if (auto refused = refusal(head))
        return *std::move(refused);
    if (head.path == "/api/transcribe")
        return transcription(head);
    if (head.path == "/api/chat")
        return chat(head);
    if (head.path == "/api/version" && head.method == "HEAD")
        onWarmUp();
    if (head.path == "/api/version")
        return withoutBody([this] { return version(); });
    if (head.path == "/healthz")
        return withoutBody([] { return Answer(200, plainText, "ok\n"); });
    if (head.path == "/metrics")
        return withoutBody(
            [this] { return Answer(200, "text/plain; version=0.0.4", onMetrics()); });
    return withoutBody([this, path = head.path] {
        return m_updates.file(path).value_or(
            Answer(Failure{404, "No such update is configured on this service.\n"}));
    });
}

/// Its own version unless an update is offered, so that nobody finds a newer one here.
Answer SpeechApi::version() const {
    if (auto offered = m_updates.versionInfo())
        return {200, "application/json", *std::move(offered)};
    const json info = {{"version", m_version},
                       {"build", 0},
                       {"downloadUrl", ""},
                       {"releaseNotes", ""},
                       {"minVersion", "0.0"}};
    return {200, "application/json", info.dump() + "\n"};
}

Result<Intake, Answer> SpeechApi::transcription(const RequestHead& head) const {
    const std::shared_ptr reader = TranscribeFormReader::forType(head.header("Content-Type"));
    if (!reader)
        return Answer(noForm());
    const auto take = [reader](std::string_view bytes) -> std::optional<Answer> {
        if (const auto refused = reader->add(bytes))
            return Answer(*refused);
        return std::nullopt;
    };
    return Intake{take, [this, reader, start = m_clock.now()](Exchange& exchange) {
                      auto form = reader->finish();
                      if (!form)
                          return exchange.answer(Answer(form.error()));
                      transcribe(std::move(form).value(), start, exchange);
                  }};
}

void SpeechApi::transcribe(TranscribeForm form, Clock::Instant start, Exchange& exchange) const {
    const auto uploaded = m_clock.now();
    Headers headers{{"X-Upload-Ms", std::to_string(wholeMilliseconds(uploaded - start))}};
    auto& [take, cleanupPrompt, cleanupModel] = form;
    // Clients trim a plain text, and pass over lines of a stream that hold no data.
    if (cleanupPrompt)
        exchange.promise(streamHead(headers), ":\n\n");
    else
        exchange.promise(Answer(200, plainText, "", headers), " ");
    auto text = m_recogniser.recognise(take, [&exchange] { return exchange.isWanted(); });
    if (!text)
        return exchange.answer(Answer(text.error()));
    headers.emplace_back("X-Transcription-Ms",
                         std::to_string(wholeMilliseconds(m_clock.now() - uploaded)));
    if (!cleanupPrompt)
        return exchange.answer(Answer(200, plainText, std::move(text).value().text, headers));
    Transcript heard = std::move(text).value();
    CleanupRequest cleanup{heard.text, {}, chatModelFor(cleanupModel), heard.language};
    cleanup.messages = {{"system", std::move(*cleanupPrompt)}, {"user", std::move(heard.text)}};
    streamCleanup(std::move(cleanup), streamHead(headers), exchange);
}

Result<Intake, Answer> SpeechApi::chat(const RequestHead& head) const {
    if (formBoundary(head.header("Content-Type")))
        return Answer(badChat("The body is a form, not JSON."));
    const auto body = std::make_shared<std::string>();
    const auto take = [body](std::string_view bytes) -> std::optional<Answer> {
        if (body->size() + bytes.size() > largestChat)
            return Answer(Failure{413, "The text is longer than 1 MB. Send it in pieces.\n"});
        body->append(bytes);
        return std::nullopt;
    };
    return Intake{take, [this, body](Exchange& exchange) {
                      auto request = parsedChat(*body);
                      if (!request)
                          return exchange.answer(Answer(request.error()));
                      exchange.promise(streamHead({}), ":\n\n");
                      streamCleanup(std::move(request).value(), streamHead({}), exchange);
                  }};
}

void SpeechApi::streamCleanup(CleanupRequest request, Answer head, Exchange& exchange) const {
    auto text = m_cleanup.start(std::move(request), [&exchange] { return exchange.isWanted(); });
    if (!text)
        return exchange.answer(Answer(text.error()));
    exchange.begin(std::move(head));
    const bool whole = text.value()(
        [&](std::string_view fragment) { return exchange.write(textEvent(fragment)); });
    if (whole && exchange.write(endEvent))
        exchange.end();
}

}  // namespace nulo::service
