#pragma once

#include "service/Cleanup.h"
#include "service/gateway/ProviderCalls.h"

namespace nulo::service {

/// Has a text rewritten by the language model that is asked for, piece by piece as it comes. What
/// was said is a message of the user's, never a part of the instruction; where nothing was said, no
/// provider is asked.
class GatewayCleanup final : public Cleanup {
  public:
    GatewayCleanup(const GatewayConfig& config, ProviderCalls& calls, Cleanup& offline)
        : m_config(config), m_calls(calls), m_offline(offline) {}

    /// Returns with the first piece at hand, so that a provider's failure before it is still told
    /// with a status of its own.
    Result<Stream, Failure> start(CleanupRequest request, const StillWanted& stillWanted) override;

  private:
    const GatewayConfig& m_config;
    ProviderCalls& m_calls;
    Cleanup& m_offline;
};

}  // namespace nulo::service
