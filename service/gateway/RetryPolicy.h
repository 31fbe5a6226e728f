#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "base/Clock.h"
#include "service/StillWanted.h"

namespace nulo::service {

/// How long a provider asks to be left alone, from its Retry-After: seconds or a date. Nothing when
/// it is neither; never below zero.
std::optional<std::chrono::milliseconds> retryAfter(const std::string& header, Clock::WallTime now);

/// How long to wait before a request that failed with `status` is sent once more; nothing when it
/// is not worth it: after two retries, for other failures than 429 and 5xx, and where the provider
/// wants to be left alone for longer than a person would wait (3 s).
std::optional<std::chrono::milliseconds> retryDelay(
    int retriesDone, int status, std::optional<std::chrono::milliseconds> askedFor);

using Sleep = std::function<void(std::chrono::milliseconds)>;

/// Sleeps, a fifth of a second at a time; false as soon as the outcome is no longer wanted.
bool sleepWhileWanted(std::chrono::milliseconds duration, const StillWanted& stillWanted,
                      const Sleep& sleep);

}  // namespace nulo::service
