#pragma once

#include <filesystem>
#include <functional>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/Clock.h"
#include "base/MainQueue.h"
#include "base/Print.h"
#include "base/Uuid.h"
#include "transcription/CombinedStreamHandler.h"
#include "transcription/HttpSession.h"
#include "transcription/PlainSessionDelegate.h"
#include "transcription/StreamingSessionRouter.h"
#include "transcription/TranscriptionError.h"
#include "transcription/TranscriptionProvider.h"

namespace nulo {

/// The client of the speech service. Requests may be made from any thread and never wait for the
/// network; none is retried. Each ends in one call of its completion, unless the service is
/// destroyed first: what is in flight is then given up without a call.
///
/// Destroy it on the main thread, not from a completion of transcribe().
class TranscriptionService {
  public:
    using OnTranscriptionTime = CombinedStreamHandler::OnTranscriptionTime;
    using OnToken = CombinedStreamHandler::OnToken;
    using Completion = CombinedStreamHandler::Completion;

    /// Everything referred to outlives the service.
    struct Dependencies {
        /// Called at most twice, on the thread of the first request that needs that session.
        std::function<std::unique_ptr<HttpSession>(HttpSessionDelegate&)> makeSession;
        MainQueue& mainQueue;
        const Clock& clock;
        Print print;
        Print log;  // the pipeline log
        std::function<std::string()> makeUuid = randomUuid;
    };

    /// `baseURL` is an origin without a trailing slash. `authHeaders` go with every request but the
    /// warm-up. A request to a base URL that forms no valid URL stops the process.
    TranscriptionService(std::string baseURL, HttpHeaders authHeaders, Dependencies dependencies);

    /// Speech to text as it was spoken. `prompt` is the vocabulary hint. `completion` runs on a
    /// network thread, or at once on this one when the file cannot be read.
    void transcribe(const std::filesystem::path& file, TranscriptionProvider provider,
                    const std::optional<std::string>& prompt, Completion completion);

    /// Speech to cleaned text in one request, streamed back. The callbacks run on the main thread,
    /// but for a file that cannot be read: `completion` then runs at once on this one.
    void transcribeAndClean(const std::filesystem::path& file, TranscriptionProvider provider,
                            const std::optional<std::string>& dictPrompt,
                            std::string_view cleanupPrompt, std::string_view cleanupModel,
                            OnTranscriptionTime onTranscriptionTime, OnToken onToken,
                            Completion completion);

    /// Text to cleaned text, streamed back. The callbacks run on the main thread, but for text that
    /// is not UTF-8: `completion` then runs at once on this one.
    void cleanupStreaming(std::string_view rawText, std::string_view prompt,
                          std::string_view cleanupModel, OnToken onToken, Completion completion);

    /// Opens the connection that streamed requests use, so that the next one finds it open.
    void warmUpConnection();

  private:
    /// The form with the audio; nothing when the file cannot be read.
    std::optional<HttpRequest> audioRequest(
        const std::filesystem::path& file, TranscriptionProvider provider,
        const std::optional<std::string>& vocabulary,
        std::initializer_list<std::pair<std::string_view, std::string_view>> cleanupFields) const;
    HttpRequest postRequest(std::string url, std::string contentType, std::string body) const;
    HttpSession& streamingSession();
    HttpSession& sharedSession();
    std::shared_ptr<CombinedStreamHandler> makeHandler(OnTranscriptionTime onTranscriptionTime,
                                                       OnToken onToken, Completion completion);
    void startStreaming(HttpRequest request, std::shared_ptr<CombinedStreamHandler> handler);

    const std::string m_baseURL;
    const HttpHeaders m_authHeaders;
    const Dependencies m_dependencies;
    StreamingSessionRouter m_streamingRouter;
    PlainSessionDelegate m_sharedDelegate;
    std::once_flag m_streamingOnce;
    std::once_flag m_sharedOnce;
    // The shared session goes first: a completion that still runs on its thread may be starting a
    // streamed request.
    std::unique_ptr<HttpSession> m_streamingSession;
    std::unique_ptr<HttpSession> m_sharedSession;
};

}  // namespace nulo
