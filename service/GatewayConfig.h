#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "base/Print.h"
#include "base/Result.h"
#include "service/OfflineSettings.h"

namespace nulo::service {

/// Somebody who can transcribe or rewrite text: a vendor with the user's own key, or a server of
/// the user's with the same requests.
struct Provider {
    std::string name;                // "openai", "mistral" or "local"
    std::string baseURL;             // paths are appended to it
    std::string apiKey;              // empty: none is sent. Never printed
    std::string transcriptionModel;  // empty: the request's or the vendor's own; local: none
    std::string chatModel;
};

struct TlsFiles {
    std::filesystem::path certificate;  // PEM, with its chain
    std::filesystem::path key;          // PEM
};

/// What "nulo-service.json" says.
struct GatewayConfig {
    std::optional<std::string> address;
    std::optional<int> port;
    std::vector<std::string> tokens;  // SHA-256 of each, as sha256() writes it
    std::optional<TlsFiles> tls;
    OfflineSettings offline;
    std::vector<Provider> providers;  // openai, mistral, local, those that are configured

    const Provider* provider(std::string_view name) const;
};

/// One line through `print` when other users can read a file that holds secrets.
void warnIfReadable(const std::filesystem::path& file, const Print& print);

/// "nulo-service.json" in the user's configuration folder.
std::filesystem::path defaultGatewayConfigFile();

/// The error is one line that names the file and the key; it never holds a value of the file.
/// Warns through `print` about files with keys that other users can read.
Result<GatewayConfig> readGatewayConfig(const std::filesystem::path& file, const Print& print);

/// What each provider is used for, a line each; keys are not in it.
std::vector<std::string> descriptionOf(const GatewayConfig& config);

}  // namespace nulo::service
