#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "base/Result.h"

namespace nulo::service {

/// Samples a second of the audio that engines hear.
inline constexpr int speechRate = 16000;

/// An offline recogniser with its model loaded. One call at a time; calls may be on any thread.
class SpeechEngine {
  public:
    virtual ~SpeechEngine() = default;
    /// Mono at speechRate, at least one sample. UTF-8; empty when nothing was said. What was heard
    /// before has no influence.
    virtual std::string hear(std::span<const std::int16_t> samples) = 0;
};

/// Loads another engine; any thread.
using MakeEngine = std::function<Result<std::unique_ptr<SpeechEngine>>()>;

}  // namespace nulo::service
