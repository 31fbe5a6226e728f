#pragma once

#include <httplib.h>

#include <functional>
#include <optional>
#include <string>

#include "base/Clock.h"
#include "service/Cleanup.h"
#include "service/Recogniser.h"
#include "service/http/RequestGuard.h"
#include "service/http/UpdateFolder.h"

namespace nulo::service {

/// The endpoints: which requests are answered at all, and with what. Any thread. All it is given
/// must outlive the server that it is attached to.
class SpeechApi {
  public:
    SpeechApi(Recogniser& recogniser, Cleanup& cleanup, RequestGuard guard, const Clock& clock,
              std::string version, UpdateFolder updates);

    void attachTo(httplib::Server& server);
    /// What "/metrics" answers; any thread.
    std::function<std::string()> onMetrics = [] { return std::string(); };

  private:
    std::optional<Failure> refusal(const httplib::Request& request) const;
    void version(const httplib::Request& request, httplib::Response& response) const;
    void update(const httplib::Request& request, httplib::Response& response) const;
    void transcribe(const httplib::Request& request, httplib::Response& response,
                    const httplib::ContentReader& content);
    void chat(const httplib::Request& request, httplib::Response& response,
              const httplib::ContentReader& content);
    void streamCleanup(CleanupRequest request, httplib::Response& response);

    Recogniser& m_recogniser;
    Cleanup& m_cleanup;
    const RequestGuard m_guard;
    const Clock& m_clock;
    const std::string m_version;
    const UpdateFolder m_updates;
};

}  // namespace nulo::service
