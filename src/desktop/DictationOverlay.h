#pragma once

#include <string>
#include <string_view>

namespace nulo {

/// What the person is told about one dictation, as it goes, on a panel that is shown from its start
/// on. Main thread, but where said otherwise.
class DictationOverlay {
  public:
    /// The number of a panel, which none before or after it has; 0 stands for no panel.
    using Panel = int;

    virtual ~DictationOverlay() = default;
    /// The panel that the calls below act on: the newest one, whether or not it is still there. A
    /// dictation calls nothing once that is the panel of another.
    virtual Panel panel() const = 0;
    virtual void showTranscribing() = 0;
    virtual void showStreaming(std::string_view modeName) = 0;
    virtual void appendStreamingText(std::string_view text) = 0;
    /// Takes the cursor away: the text is complete.
    virtual void finishStreaming() = 0;
    /// Says below the text that the user has to paste it.
    virtual void showToBePasted() = 0;
    /// Adds a step; takes effect on the main queue. Any thread.
    virtual void showDebugStep(std::string text) = 0;
    /// Puts a step in place of the last one, if there is one; takes effect on the main queue. Any
    /// thread.
    virtual void updateDebugStep(std::string text) = 0;
    virtual void clearDebugSteps() = 0;
    virtual void hide() = 0;
};

}  // namespace nulo
