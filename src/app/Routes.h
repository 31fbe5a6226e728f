#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "base/Lifetime.h"
#include "base/MainQueue.h"
#include "config/AppConfig.h"
#include "keeping/KeptTakes.h"
#include "transcription/TranscriptionService.h"

namespace nulo {

TranscriptionProvider providerOf(const std::optional<AppConfig>& config);

/// The route that the settings ask for; without settings the transcript alone.
TakeRoute routeOf(const std::optional<AppConfig>& config);

/// What came of a take that was sent again.
struct RouteResult {
    TextResult text;
    /// Why the text is the transcript, where a clean-up was asked for.
    std::optional<TranscriptionFailure> cleanupFailure;
};

/// Sends a take by a route, without anything of it being shown. The file is read inside this call.
/// `onEnd` is called once, on the main thread, later or inside this call, unless `owner` is gone by
/// then; so is the service used no longer than `owner` lives.
void sendByRoute(TranscriptionService& service, MainQueue& mainQueue, const Lifetime& owner,
                 const std::filesystem::path& file, const TakeRoute& route,
                 std::function<void(const RouteResult&)> onEnd);

}  // namespace nulo
