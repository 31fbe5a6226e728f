#pragma once

#include <string>
#include <string_view>

namespace nulo {

/// What the person is told about one dictation, as it goes, on a panel that is shown from its start
/// on. Main thread, but where said otherwise.
class DictationOverlay {
  public:
    /// Tells one panel from those before and after it; 0 for none.
    using Panel = int;

    virtual ~DictationOverlay() = default;
    /// The panel that the calls below act on: the newest, still there or not. A dictation keeps
    /// silent as soon as it is another one's.
    virtual Panel panel() const = 0;
    virtual void showTranscribing() = 0;
    virtual void showStreaming(std::string_view modeName) = 0;
    virtual void appendStreamingText(std::string_view text) = 0;
    /// The text is complete: no cursor any more.
    virtual void finishStreaming() = 0;
    /// One more step; takes effect on the main queue. Any thread, as updateDebugStep().
    virtual void showDebugStep(std::string text) = 0;
    /// In place of the last step, if there is one; takes effect on the main queue.
    virtual void updateDebugStep(std::string text) = 0;
    virtual void clearDebugSteps() = 0;
    virtual void hide() = 0;
};

}  // namespace nulo
