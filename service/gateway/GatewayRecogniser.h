#pragma once

#include "service/Recogniser.h"
#include "service/gateway/ProviderCalls.h"

namespace nulo::service {

/// Has a take transcribed by the provider that it names, or by whoever stands in for it. Silence is
/// sent to nobody.
class GatewayRecogniser final : public Recogniser {
  public:
    GatewayRecogniser(const GatewayConfig& config, ProviderCalls& calls, Recogniser& offline)
        : m_config(config), m_calls(calls), m_offline(offline) {}

    Result<Transcript, Failure> recognise(const Take& take,
                                          const StillWanted& stillWanted) override;

  private:
    Result<Transcript, Failure> transcribe(const Route& route, const Take& take,
                                           const StillWanted& stillWanted);

    const GatewayConfig& m_config;
    ProviderCalls& m_calls;
    Recogniser& m_offline;
};

/// A name for the take by which providers tell its format, whatever the client called it; `head` is
/// how the file begins.
std::string takeName(std::string_view head);

/// The transcript in a provider's answer of the media type `type`: a bare text, or JSON with a
/// "text". UTF-8; nothing when it is neither.
std::optional<std::string> transcriptIn(const std::string& body, const std::string& type);

}  // namespace nulo::service
