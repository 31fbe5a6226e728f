#pragma once

#include <functional>
#include <optional>
#include <string>

#include "base/Clock.h"
#include "service/Cleanup.h"
#include "service/Recogniser.h"
#include "service/http/HttpServer.h"
#include "service/http/RequestGuard.h"
#include "service/http/TranscribeForm.h"
#include "service/http/UpdateFolder.h"

namespace nulo::service {

/// The endpoints: which requests are answered at all, and with what. Any thread. All it is given
/// must outlive it, and it the server whose requests it answers.
class SpeechApi {
  public:
    SpeechApi(Recogniser& recogniser, Cleanup& cleanup, RequestGuard guard, const Clock& clock,
              std::string version, UpdateFolder updates);

    /// Whether a request is taken, and how; see HttpServer::Accept.
    Result<Intake, Answer> accept(const RequestHead& head) const;
    /// Somebody has begun to speak: clients send a HEAD for the version then. On the server's
    /// thread, so it must not wait.
    std::function<void()> onWarmUp = [] {};
    /// What "/metrics" answers; any thread.
    std::function<std::string()> onMetrics = [] { return std::string(); };

  private:
    std::optional<Answer> refusal(const RequestHead& head) const;
    Answer version() const;
    Result<Intake, Answer> transcription(const RequestHead& head) const;
    Result<Intake, Answer> chat(const RequestHead& head) const;
    void transcribe(TranscribeForm form, Clock::Instant start, Exchange& exchange) const;
    void streamCleanup(CleanupRequest request, Answer head, Exchange& exchange) const;

    Recogniser& m_recogniser;
    Cleanup& m_cleanup;
    const RequestGuard m_guard;
    const Clock& m_clock;
    const std::string m_version;
    const UpdateFolder m_updates;
};

}  // namespace nulo::service
