#pragma once

#include "hotkey/EventTap.h"

namespace nulo {

/// Recognises Option+Space, pressed in this order, in a stream of key events. (Both names stand for
/// whatever keys the chord has.)
///
/// - Idle: nothing of the chord is down; all events pass.
/// - Armed: Option went down and is held back, as it may begin the chord. Space starts a recording;
///   any other key shows that Option was meant for the application, which then gets it late.
/// - Recording: Space went down too. The first release of either key ends it.
///
/// One thread at a time.
class ChordStateMachine {
  public:
    enum class Report { none, recordStart, recordStop };

    struct Reaction {
        EventFate fate = EventFate::pass;
        Report report = Report::none;
        /// Applications must see an Option press before the event itself.
        bool postOptionDown = false;
    };

    /// The two kinds of tapDisabled… change nothing.
    Reaction handle(const KeyEvent& event);

  private:
    Reaction optionChanged(bool optionSet);
    Reaction keyDown(bool isSpace);
    Reaction keyUp(bool isSpace);

    bool m_optionHeld = false;
    bool m_isRecording = false;
};

}  // namespace nulo
