#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "base/Result.h"
#include "service/AudioDecoder.h"

namespace nulo::service {

/// An offline recogniser with its model loaded. One call at a time; calls may be on any thread.
class SpeechEngine {
  public:
    virtual ~SpeechEngine() = default;
    /// Mono at speechRate, at least one sample; `language` as a code such as "fr", empty when it is
    /// not known. UTF-8; empty when nothing was said. What was heard before has no influence. May
    /// throw; the engine is then not used again.
    virtual std::string hear(std::span<const std::int16_t> samples,
                             const std::string& language) = 0;
};

/// Loads another engine; any thread.
using MakeEngine = std::function<Result<std::unique_ptr<SpeechEngine>>()>;

}  // namespace nulo::service
