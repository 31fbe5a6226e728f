#pragma once

#include <xcb/xinput.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "base/Result.h"
#include "hotkey/EventTap.h"
#include "pasting/InjectionGate.h"
#include "platform/x11/X11KeyWatch.h"
#include "platform/x11/X11WindowManager.h"
#include "platform/x11/Xcb.h"

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
/// One thread at a time. Its waits end when its sockets are shut down.
class X11EventTapSession {
  public:
    using Handler = EventTapSource::Handler;

    /// Told before a wait that may last as long: the user has the server delay keys.
    using ExpectDelay = std::function<void(std::chrono::milliseconds)>;

    /// Connects to $DISPLAY and puts the grabs in place. `gate` and `handler` outlive the session;
    /// `hideSpace`: Space, if it is down along with Option, was swallowed by an earlier session.
    static Result<std::unique_ptr<X11EventTapSession>> open(InjectionGate& gate,
                                                            const Handler& handler,
                                                            ExpectDelay expectDelay,
                                                            bool hideSpace);
    ~X11EventTapSession();

    /// The event connection's first.
    std::vector<int> sockets() const;
    /// First of all: reports Option as up to the handler when the chord is not wholly down.
    void begin();
    /// Handles all that has arrived; false when the connection is gone.
    bool handleEvents();
    /// Inside the handler: the held-back Option press is to be seen by the application.
    void postOptionDown();

    bool isKeyboardHeld() const { return m_held; }
    bool isHidingSpace() const { return m_hidingSpace; }
    /// Why Option does not get here at present, in one line; null when it does.
    const char* obstacle() const;
    /// Asks the server, on a connection of its own, whether the grabs are still there, and whether
    /// another program's go before them.
    bool grabsAreAlive();
    /// Ends the chord, as if Option had been let go, and what holds the keyboard.
    void letGo();

  private:
    using Event = XcbEvent;

    struct QueuedKey {
        xcb_keycode_t key;
        bool press;
        EventFate fate;
    };

    X11EventTapSession(InjectionGate& gate, const Handler& handler, ExpectDelay expectDelay);

    // Setting up.
    std::optional<Error> connect();
    void selectEvents();

    // Reading.
    Event nextEvent();
    void handleEvent(const xcb_generic_event_t& event);
    void handleGenericEvent(const xcb_generic_event_t& event);
    void handleKeyboardExtensionEvent(const xcb_generic_event_t& event);
    void handleRawKey(const xcb_input_raw_key_press_event_t& raw, bool press);
    void reportModifier(const xcb_input_raw_key_press_event_t& raw, bool press, bool queued);
    void reportKey(xcb_keycode_t key, bool press, bool queued);
    void handleRawButton();
    void awaitHeraldedGrab();
    void handleGrabbedKey(const xcb_key_press_event_t& event);
    EventFate reportOption(bool set);

    // Answering.
    void enqueue(xcb_keycode_t key, bool press, EventFate fate);
    bool settle();
    void handOn();
    void replayRelease();
    bool stepTo(const QueuedKey& key);
    Event awaitGrabbedKey(std::uint32_t since, const QueuedKey& key);
    bool mustTakeOut() const;
    void letOneThrough(const xcb_key_press_event_t& event);
    bool passTheHold(void (X11EventTapSession::*endOfMyGrab)());
    void endGrab();
    void forward(const xcb_key_press_event_t& event);
    void letThrough();
    void findOptionCaughtSince(std::uint32_t sequence);
    void hold();
    bool grabKeyboard();
    void release();
    void replay();
    void setHeld(bool held);
    bool mustHold() const { return m_armed || m_hidingSpace || m_takenOption; }
    static bool isPressOf(const Event& event, xcb_keycode_t key, std::uint32_t time);
    void selectKeyboardEvents(xcb_connection_t* connection, std::uint16_t events);

    // Keeping the passive grabs where the focus is.
    bool refresh();
    xcb_window_t focusWindow();
    void moveGrabs(xcb_window_t window);
    bool grabOptionKeys();
    void dropGrabs();
    void lookForGrabOnDesktop();

    InjectionGate& m_gate;
    const Handler& m_handler;
    const ExpectDelay m_expectDelay;
    XcbConnection m_connection;
    XcbConnection m_probe;
    xcb_connection_t* m_holder = nullptr;  // the connection whose grab freezes the keyboard
    xcb_window_t m_root = XCB_NONE;
    xcb_atom_t m_activeWindow = XCB_NONE;
    std::uint8_t m_inputOpcode = 0;
    std::uint8_t m_keyboardEvent = 0;
    std::optional<X11WindowManager> m_windowManager;
    std::deque<Event> m_deferred;  // read while waiting for something else

    // What the user does.
    std::optional<X11KeyWatch> m_keys;
    /// An Option press that counts once the passive grab is seen to have held it back.
    struct HeraldedOption {
        xcb_keycode_t key;
        std::uint32_t time;
        std::uint32_t
            sequence;  // of its raw event: whatever is read after that is queued behind it
    };
    std::optional<HeraldedOption> m_heraldedOption;
    bool m_armed = false;
    bool m_hidingSpace = false;
    bool m_optionHandedOn = false;

    // What the server holds.
    bool m_held = false;
    std::uint32_t m_heldSince = 0;   // the first sequence number whose events are in the queue
    bool m_optionIsCurrent = false;  // the queue's first was delivered and can be replayed
    /// An Option press taken out of the queue before it was judged; the rest is queued behind it.
    Event m_takenOption;
    std::deque<QueuedKey> m_queue;

    // The passive grabs.
    xcb_window_t m_grabWindow = XCB_NONE;
    bool m_windowIsTaken = false;   // its Option keys are another program's
    bool m_desktopIsTaken = false;  // likewise, of the root window, before every other window
    bool m_focusMayHaveMoved = false;
    bool m_grabWindowIsGone = false;
    bool m_layoutChanged = false;
};

}  // namespace nulo
