#pragma once

#include <optional>
#include <string>

#include "service/Failure.h"
#include "service/GatewayConfig.h"
#include "service/gateway/UpstreamClient.h"

namespace nulo::service {

/// What a client is told when a provider does not answer, or not to the end.
Failure failureOf(const UpstreamFault& fault, const Provider& provider);

/// What a client is told when a provider answers with an error. The provider's own words are passed
/// on where they help, never with the key in them.
Failure failureOf(int status, const std::string& body, std::optional<int> retryAfterSeconds,
                  const Provider& provider, const std::string& model);

/// What a client is told when an answer of status 200 does not hold what it should.
Failure unusableAnswer(const Provider& provider, const std::string& what);

/// Whether an error says that waiting will not help: the account's quota is used up.
bool isQuotaError(const std::string& body);

}  // namespace nulo::service
