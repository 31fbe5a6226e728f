#pragma once

#include <string>
#include <string_view>

#include "service/GatewayConfig.h"

namespace nulo::service {

/// Who serves a request.
struct Route {
    const Provider* provider = nullptr;  // null: the offline engine. Points into the configuration
    std::string model;                   // empty with the offline engine
    std::string reason;                  // for the log
};

/// Who transcribes for a request that names a provider and perhaps a model: the one that is named;
/// where it is not configured, the local server, then the other vendor, then the offline engine.
Route transcriptionRoute(const GatewayConfig& config, std::string_view provider,
                         std::string_view model);

/// Who serves a chat: the vendor that the model belongs to, or the next in the same order. A model
/// that no vendor has goes to the local server, or to the offline rules.
Route chatRoute(const GatewayConfig& config, std::string_view model);

/// The model that the form field "cleanup_model" stands for: "openai", or any other text for
/// mistral; the name of a vendor's model stands for itself.
std::string chatModelFor(std::string_view cleanupModel);

}  // namespace nulo::service
