#pragma once

#include <string_view>

namespace nulo {

/// What the pipeline tells the person about one dictation, as it goes. Main thread.
class DictationOverlay {
  public:
    enum class DebugStep {
        append,      // one more step
        replace,     // the last step again, now with its time
        replaceAll,  // the summary instead of all steps
    };

    virtual ~DictationOverlay() = default;
    virtual void showTranscribing() = 0;
    virtual void showStreaming(std::string_view modeName) = 0;
    virtual void appendStreamingText(std::string_view text) = 0;
    /// The text is complete: no cursor any more.
    virtual void finishStreaming() = 0;
    virtual void showDebugStep(std::string_view text, DebugStep step) = 0;
    virtual void hide() = 0;
};

}  // namespace nulo
