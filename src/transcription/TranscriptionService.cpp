#include "transcription/TranscriptionService.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/FileIO.h"
#include "base/HttpUrl.h"
#include "base/Text.h"
#include "transcription/MultipartForm.h"

namespace nulo {
namespace {

// An hour of AAC at 64 kbit/s is 29 MB.
constexpr std::uintmax_t longestAudioFile = 1024ull * 1024 * 1024;

/// A base URL is checked before a service is built on it, so a bad one here is a bug.
void requireValidUrl(const std::string& url) {
    if (isValidHttpUrl(url))
        return;
    std::fprintf(stderr, "nulo: cannot go on: \"%s\" is not a valid http or https URL\n",
                 url.c_str());
    std::abort();
}

TextResult plainResult(const std::optional<Error>& error,
                       const PlainSessionDelegate::Answer& answer, std::string_view providerLabel,
                       long long elapsed, const Print& print) {
    if (error)
        return TranscriptionFailure(*error);
    if (!answer.status)
        return TranscriptionFailure(TranscriptionError::invalidResponse());
    if (answer.isTooLong)
        return TranscriptionFailure(tooLong("a text", largestText));
    const bool decodes = isValidUtf8(answer.body);
    if (*answer.status != 200) {
        std::string message = decodes ? answer.body : "Unknown error";
        print("Transcription API error (" + std::to_string(*answer.status) +
              "): " + visible(message));
        return TranscriptionFailure(
            TranscriptionError::apiError(*answer.status, std::move(message)));
    }
    std::string text = decodes ? trimmed(answer.body) : std::string();
    print("Transcription (" + std::string(providerLabel) + "): " + std::to_string(elapsed) +
          "ms, " + std::to_string(characterCount(text)) + " chars");
    return text;
}

}  // namespace

TranscriptionService::TranscriptionService(std::string baseURL, HttpHeaders authHeaders,
                                           Dependencies dependencies)
    : m_baseURL(std::move(baseURL)),
      m_authHeaders(std::move(authHeaders)),
      m_dependencies(std::move(dependencies)),
      m_streamingRouter(m_dependencies.log) {}

void TranscriptionService::transcribe(const std::filesystem::path& file,
                                      TranscriptionProvider provider,
                                      const std::optional<std::string>& prompt,
                                      Completion completion) {
    auto request = audioRequest(file, provider, prompt, {});
    if (!request) {
        completion(TranscriptionFailure(TranscriptionError::fileReadFailed()));
        return;
    }
    const auto start = m_dependencies.clock.now();
    HttpSession& session = sharedSession();
    const HttpTaskId task = session.createTask(std::move(*request));
    m_sharedDelegate.add(
        task, [&clock = m_dependencies.clock, print = m_dependencies.print, start, provider,
               completion = std::move(completion)](const auto& error, const auto& answer) {
            const long long elapsed = wholeMilliseconds(clock.now() - start);
            completion(plainResult(error, answer, label(provider), elapsed, print));
        });
    session.resume(task);
}

void TranscriptionService::transcribeAndClean(const std::filesystem::path& file,
                                              TranscriptionProvider provider,
                                              const std::optional<std::string>& dictPrompt,
                                              std::string_view cleanupPrompt,
                                              std::string_view cleanupModel,
                                              OnTranscriptionTime onTranscriptionTime,
                                              OnToken onToken, Completion completion) {
    auto request =
        audioRequest(file, provider, dictPrompt,
                     {{"cleanup_prompt", cleanupPrompt}, {"cleanup_model", cleanupModel}});
    if (!request) {
        completion(TranscriptionFailure(TranscriptionError::fileReadFailed()));
        return;
    }
    const std::size_t size = request->body.size();
    m_dependencies.log("HTTP request ready: " + std::to_string(size) + " bytes (" +
                       std::to_string(size / 1024) + "KB), sending...");
    startStreaming(std::move(*request), makeHandler(std::move(onTranscriptionTime),
                                                    std::move(onToken), std::move(completion)));
    m_dependencies.log("URLSession dataTask resumed (persistent session, request in flight)");
}

void TranscriptionService::cleanupStreaming(std::string_view rawText, std::string_view prompt,
                                            std::string_view cleanupModel, OnToken onToken,
                                            Completion completion) {
    std::string url = m_baseURL + "/api/chat";
    requireValidUrl(url);
    if (!isValidUtf8(rawText) || !isValidUtf8(prompt)) {  // JSON holds nothing else
        completion(TranscriptionFailure(TranscriptionError::invalidResponse()));
        return;
    }
    const nlohmann::json body = {
        {"model", cleanupModel == "openai" ? "gpt-5.4-mini" : "mistral-small-latest"},
        {"stream", true},
        {"messages",
         {{{"role", "system"}, {"content", prompt}}, {{"role", "user"}, {"content", rawText}}}}};
    startStreaming(postRequest(std::move(url), "application/json", body.dump()),
                   makeHandler(nullptr, std::move(onToken), std::move(completion)));
}

void TranscriptionService::warmUpConnection() {
    HttpRequest request;
    request.method = "HEAD";
    request.url = m_baseURL + "/api/version";
    request.idleTimeout = std::chrono::seconds(10);
    if (!isValidHttpUrl(request.url))
        return;
    HttpSession& session = streamingSession();
    session.resume(session.createTask(std::move(request)));
    m_dependencies.print("[nulo] Connection warm-up sent to " + m_baseURL);
}

std::optional<HttpRequest> TranscriptionService::audioRequest(
    const std::filesystem::path& file, TranscriptionProvider provider,
    const std::optional<std::string>& vocabulary,
    std::initializer_list<std::pair<std::string_view, std::string_view>> cleanupFields) const {
    std::string url = m_baseURL + "/api/transcribe";
    requireValidUrl(url);
    MultipartForm form(m_dependencies.makeUuid());
    form.addText("provider", rawValue(provider));
    if (provider == TranscriptionProvider::openai) {
        form.addText("model", "gpt-4o-mini-transcribe");
        form.addText("response_format", "text");
        if (vocabulary)
            form.addText("prompt", *vocabulary);
    }
    for (const auto& [name, value] : cleanupFields)
        form.addText(name, value);
    const auto audio = readFile(file, longestAudioFile);
    if (!audio)
        return std::nullopt;
    form.addAudioFile(file, *audio);
    return postRequest(std::move(url), form.contentType(), form.takeBody());
}

HttpRequest TranscriptionService::postRequest(std::string url, std::string contentType,
                                              std::string body) const {
    HttpRequest request;
    request.method = "POST";
    request.url = std::move(url);
    request.headers = m_authHeaders;
    request.headers.emplace_back("Content-Type", std::move(contentType));
    request.body = std::move(body);
    request.idleTimeout = std::chrono::seconds(60);
    return request;
}

HttpSession& TranscriptionService::streamingSession() {
    std::call_once(m_streamingOnce,
                   [this] { m_streamingSession = m_dependencies.makeSession(m_streamingRouter); });
    return *m_streamingSession;
}

HttpSession& TranscriptionService::sharedSession() {
    std::call_once(m_sharedOnce,
                   [this] { m_sharedSession = m_dependencies.makeSession(m_sharedDelegate); });
    return *m_sharedSession;
}

std::shared_ptr<CombinedStreamHandler> TranscriptionService::makeHandler(
    OnTranscriptionTime onTranscriptionTime, OnToken onToken, Completion completion) {
    return std::make_shared<CombinedStreamHandler>(m_dependencies.mainQueue, m_dependencies.log,
                                                   std::move(onTranscriptionTime),
                                                   std::move(onToken), std::move(completion));
}

void TranscriptionService::startStreaming(HttpRequest request,
                                          std::shared_ptr<CombinedStreamHandler> handler) {
    HttpSession& session = streamingSession();
    const HttpTaskId task = session.createTask(std::move(request));
    m_streamingRouter.add(task, std::move(handler));
    session.resume(task);
}

}  // namespace nulo
