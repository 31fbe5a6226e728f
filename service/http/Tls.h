#pragma once

#include <string>

#include "base/Result.h"
#include "service/GatewayConfig.h"

namespace nulo::service {

/// A certificate with its chain, and its key, as PEM.
struct TlsIdentity {
    std::string certificate;
    std::string key;
};

/// The error names the file that does not fit.
Result<TlsIdentity> loadTlsIdentity(const TlsFiles& files);

}  // namespace nulo::service
