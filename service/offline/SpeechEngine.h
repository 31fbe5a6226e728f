#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "base/Result.h"
#include "service/AudioDecoder.h"
#include "service/StillWanted.h"
#include "service/Transcript.h"

namespace nulo::service {

/// What an engine may know beforehand of what it will hear.
struct SpeechHints {
    std::string language;     // a code such as "fr"; empty: the engine finds out
    std::string prompt;       // words and names that may occur, UTF-8; empty: none
    std::string before = {};  // what was said just before; empty: nothing
};

/// An offline recogniser with its model loaded. One call at a time; calls may be on any thread.
class SpeechEngine {
  public:
    virtual ~SpeechEngine() = default;
    virtual bool knowsEnglishOnly() const { return false; }
    /// Mono at speechRate, at least one sample. The language is the one that the engine recognised
    /// or was told. What was heard before has no influence, but for what the hints say of it. May
    /// throw; the engine is then not used again. What is no longer wanted ends soon, with any text.
    virtual Transcript hear(std::span<const std::int16_t> samples, const SpeechHints& hints,
                            const StillWanted& stillWanted) = 0;
};

/// Loads another engine; any thread.
using MakeEngine = std::function<Result<std::unique_ptr<SpeechEngine>>()>;
/// Whether it would now make engines of another kind than the last one; quick, any thread.
using IsOutdated = std::function<bool()>;

}  // namespace nulo::service
