#pragma once

#include <memory>
#include <string>

#include "base/Clock.h"
#include "base/Print.h"
#include "service/Failure.h"
#include "service/GatewayConfig.h"
#include "service/WorkGate.h"
#include "service/gateway/Metrics.h"
#include "service/gateway/RetryPolicy.h"
#include "service/gateway/Routing.h"
#include "service/gateway/UpstreamClient.h"

namespace nulo::service {

/// Sends requests to providers, and knows how many go at once, with which credential, and how often
/// again. Any thread; all it is given must outlive it.
class ProviderCalls {
  public:
    struct Limits {
        WorkGate::Limits atOnce{256, 256};
        std::chrono::milliseconds transcriptionSilence = std::chrono::seconds(55);
        std::chrono::milliseconds chatSilence = std::chrono::seconds(30);
    };

    ProviderCalls(UpstreamClient& client, const Clock& clock, Sleep sleep, Print print,
                  Metrics& metrics, Limits limits);

    const Limits& limits() const { return m_limits; }
    /// The right to use a provider; null when too many requests wait for one already.
    WorkGate::Pass enter(const StillWanted& stillWanted) { return m_gate.enter(stillWanted); }
    static Failure tooBusy();

    /// `path` behind the provider's base URL; `request` lacks its addresses and its credential.
    /// An answer of status 200, or the reason why there is none.
    Result<std::unique_ptr<UpstreamAnswer>, Failure> ask(const Route& route, const char* path,
                                                         UpstreamRequest request,
                                                         const StillWanted& stillWanted);
    /// One line on who serves a request, and why.
    void logRoute(const char* task, const Route& route) const;
    /// Counts the failure of an answer after its head.
    void countFailure(const Provider& provider, int status);
    Metrics& metrics() { return m_metrics; }

  private:
    UpstreamClient& m_client;
    const Clock& m_clock;
    const Sleep m_sleep;
    const Print m_print;
    Metrics& m_metrics;
    const Limits m_limits;
    WorkGate m_gate;
};

}  // namespace nulo::service
