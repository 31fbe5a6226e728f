#pragma once

#include <functional>
#include <memory>

namespace nulo {

/// One event of the user's keyboards, as the key tap sees it.
struct KeyEvent {
    enum class Type {
        keyDown,               // a key that is no modifier; auto-repeats are key-downs too
        keyUp,                 // likewise
        flagsChanged,          // a modifier went down or up
        tapDisabledByTimeout,  // the tap was switched off because events were not answered in time
        tapDisabledByUserInput
    };

    Type type = Type::keyDown;
    bool isSpace = false;    // for keyDown and keyUp
    bool optionSet = false;  // for flagsChanged: an Option (Alt) key is down after the event
};

enum class EventFate { pass, swallow };

/// A running tap on every key event of the session. Destroying it lets go of the keyboard and joins
/// the tap's thread. Main thread, except where said.
class EventTap {
  public:
    virtual ~EventTap() = default;
    /// Switches a tap that was switched off on again. Also from inside the handler.
    virtual void enable() = 0;
    virtual bool isEnabled() = 0;
    /// Inside the handler only: lets applications see an Option press as if it happened now.
    virtual void postOptionDown() = 0;
};

/// Where taps come from, and whether the session allows them. A source that only learns when the
/// chord goes down and up, from a desktop that watches it, makes the events of an Option+Space
/// itself and does not heed the fates.
class EventTapSource {
  public:
    /// Called with each event, on the tap's own thread, one at a time and in order; the answer
    /// decides whether applications see the event. It must return within milliseconds.
    using Handler = std::function<EventFate(const KeyEvent&)>;

    virtual ~EventTapSource() = default;
    /// Whether the session lets this process observe and hold back key events. Takes at most 10 ms.
    virtual bool isTrusted() = 0;
    /// Whether the desktop was asked for the keys and has not answered yet: it may be asking the
    /// user. Main thread.
    virtual bool isUndecided() { return false; }
    /// Nothing when the tap could not be made. The handler is not called before this returned. When
    /// the chord is not wholly down as a tap begins or is enabled again, its first event says that
    /// Option is up, so that no release is ever missed.
    virtual std::unique_ptr<EventTap> createTap(Handler handler) = 0;

    /// A chord that is held ends, and other programs can have the keyboard: a screen lock needs it
    /// for itself. Main thread.
    virtual void letGo() {}
    /// Called with true when the tap is there but another program gets the chord's keys before it,
    /// with false when that is over. Main thread.
    std::function<void(bool)> onObstructed;
};

}  // namespace nulo
