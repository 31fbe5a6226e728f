#pragma once

#include <xcb/xinput.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "base/Result.h"
#include "hotkey/Chord.h"
#include "hotkey/EventTap.h"
#include "pasting/InjectionGate.h"
#include "platform/x11/X11EventReader.h"
#include "platform/x11/X11FrozenQueue.h"
#include "platform/x11/X11KeyWatch.h"
#include "platform/x11/X11OptionGrabs.h"
#include "platform/x11/X11WindowManager.h"

namespace nulo {

/// One connection to the X server on which key events are observed and held back.
///
/// Raw events say what the user does; they keep coming whatever is grabbed. Holding back is done by
/// a synchronous passive grab of the Option keys on the focus window: an Option press freezes the
/// keyboard inside the server, and what follows waits there until the handler's answers are known.
/// The grab is on the focus window because what is replayed skips the grabs above it, and a window
/// manager's are on the root.
///
/// - Free: nothing is held back.
/// - Armed: an Option press was swallowed, but is still the first event of the frozen queue, from
///   where it can be replayed with all that follows.
/// - Hiding: Space was swallowed and is still down. The queue is kept frozen, which also keeps the
///   server from repeating Space; keys that are to pass are let through one by one.
///
/// Of a chord with several modifiers only the press of the last one is held back. The application
/// has seen the others go down, so it sees them come up.
///
/// One thread at a time. Its waits end when its sockets are shut down.
class X11EventTapSession {
  public:
    using Handler = EventTapSource::Handler;
    using ExpectDelay = X11FrozenQueue::ExpectDelay;

    /// Whether a session can be opened at $DISPLAY, also when another program has the keys; grabs
    /// nothing.
    static Outcome check(InjectionGate& gate, const Handler& handler, const Chord& chord);
    /// Connects to $DISPLAY and puts the grabs in place. `gate` and `handler` outlive the session;
    /// `hideSpace`: Space, if it is down along with Option, was swallowed by an earlier session.
    static Result<std::unique_ptr<X11EventTapSession>> open(InjectionGate& gate,
                                                            const Handler& handler,
                                                            const Chord& chord,
                                                            ExpectDelay expectDelay,
                                                            bool hideSpace);
    ~X11EventTapSession();

    /// The sockets of both connections, that of the events first.
    std::vector<int> sockets() const;
    /// Call it before all else: reports Option as up to the handler when the chord is not wholly
    /// down.
    void begin();
    /// Handles all that has arrived; false when the connection is gone.
    bool handleEvents();
    /// Inside the handler only: lets the application see the held-back Option press.
    void postOptionDown();
    /// Ends the chord, as if Option had been let go, and what holds the keyboard.
    void letGo();

    bool isKeyboardHeld() const { return m_queue->isHeld(); }
    bool isHidingSpace() const { return m_hidingSpace; }
    /// See X11OptionGrabs::obstacle().
    const char* obstacle() const { return m_grabs->obstacle(); }
    /// See X11OptionGrabs::areAlive().
    bool grabsAreAlive() { return m_grabs->areAlive(); }

  private:
    /// A raw Option press, which counts once the passive grab is seen to have held it back.
    struct HeraldedOption {
        xcb_keycode_t key;
        xcb_timestamp_t time;
        std::uint32_t sequence;
        bool isDelayed = false;  // by Slow Keys: the grab's event comes later, with its own time
    };

    X11EventTapSession(InjectionGate& gate, const Handler& handler, ExpectDelay expectDelay);

    // Setting up.
    std::optional<Error> connect(const Chord& chord);
    void selectEvents(xcb_window_t root);
    void selectKeyboardEvents(xcb_connection_t* connection, std::uint16_t events);

    // What the server says.
    void handleEvent(const xcb_generic_event_t& event);
    void handleRawEvent(const xcb_input_raw_key_press_event_t& raw);
    void handleKeyboardExtensionEvent(const xcb_generic_event_t& event);
    void handleGrabbedKey(const xcb_key_press_event_t& event);
    bool isHeralded(const xcb_key_press_event_t& event) const;

    // What the user does, told to the handler.
    void reportModifier(const xcb_input_raw_key_press_event_t& raw, bool press, bool queued);
    void reportUnqueuedModifier(const xcb_input_raw_key_press_event_t& raw, bool press);
    void reportKey(xcb_keycode_t key, bool press, bool queued);
    void reportButton();
    EventFate reportOption(bool set);
    EventFate reportOptionPress(xcb_keycode_t key);

    // What follows from the answers.
    void enqueue(xcb_keycode_t key, bool press, EventFate fate);
    bool settle();
    bool mustHold() const { return m_armed || m_hidingSpace || m_queue->hasTakenOption(); }
    bool refresh();

    InjectionGate& m_gate;
    const Handler& m_handler;
    const ExpectDelay m_expectDelay;
    XcbConnection m_connection;
    XcbConnection m_helper;
    xcb_atom_t m_activeWindow = XCB_NONE;
    std::uint8_t m_inputOpcode = 0;
    std::uint8_t m_keyboardEvent = 0;
    std::optional<X11EventReader> m_events;
    std::optional<X11WindowManager> m_windowManager;
    std::optional<X11KeyWatch> m_keys;
    std::optional<X11OptionGrabs> m_grabs;
    std::optional<X11FrozenQueue> m_queue;

    std::optional<HeraldedOption> m_heraldedOption;
    std::optional<Chord::Modifier> m_swallowedOption;  // whose press the application has not seen
    bool m_armed = false;
    bool m_hidingSpace = false;
    bool m_optionHandedOn = false;
    bool m_focusMayHaveMoved = false;
    bool m_grabWindowIsGone = false;
    bool m_layoutChanged = false;
};

}  // namespace nulo
