#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <optional>

#include "hotkey/EventTap.h"
#include "pasting/InjectionGate.h"
#include "platform/x11/X11EventReader.h"
#include "platform/x11/X11KeyWatch.h"
#include "platform/x11/X11WindowManager.h"

namespace nulo {

/// The keyboard, frozen inside the server by a grab of ours, and the keys that wait there. What the
/// keys are is known from their raw events; they leave the queue in order, to be hidden or to go on
/// to the application.
///
/// An event that goes on is replayed, as a copy would not reach every program. A replay also lets
/// go of all that is behind the event, unless a grab of the pointer by another client keeps the
/// keyboard frozen: a second connection has one for that moment, and then holds the keyboard in
/// place of the first.
///
/// One thread.
class X11FrozenQueue {
  public:
    /// Called before a wait that may last as long, because the user has the server delay keys.
    using ExpectDelay = std::function<void(std::chrono::milliseconds)>;

    /// All references outlive the queue. `helper` is the second connection.
    X11FrozenQueue(X11EventReader& events, xcb_connection_t* helper, std::uint8_t keyboardEvent,
                   const X11KeyWatch& keys, X11WindowManager& windowManager, InjectionGate& gate,
                   const ExpectDelay& expectDelay);
    ~X11FrozenQueue() { m_gate.setKeyboardHeld(false); }
    X11FrozenQueue(const X11FrozenQueue&) = delete;
    X11FrozenQueue& operator=(const X11FrozenQueue&) = delete;

    bool isHeld() const { return m_held; }
    /// Whether an event with this sequence number came after the keyboard was frozen.
    bool holds(std::uint32_t sequence) const { return m_held && !isBefore(sequence, m_since); }
    bool isEmpty() const { return m_keys.empty(); }

    /// A passive grab of `window` has frozen the keyboard with this press of Option, whose raw
    /// event had this sequence number.
    void beginWith(xcb_keycode_t option, std::uint32_t sequence, xcb_window_t window);
    /// Freezes the keyboard; without effect when another program has it.
    void hold(xcb_window_t window);
    void add(xcb_keycode_t key, bool press, EventFate fate) {
        m_keys.push_back({key, press, fate});
    }

    enum class Taken { done, lost, refused };
    /// Takes everything out up to the last key that must not reach the application. The keyboard is
    /// free again when that was not done: another program has it, or the server refuses a key.
    Taken takeOutHidden();
    /// Lets the queue go its usual way, window manager included, and holds what follows.
    void letThrough();
    /// The application gets the key that is next, without the repeats of Space that may be queued
    /// before it, and all that follows.
    void letGoFromNext();
    /// The application gets the Option press that began it all, and all that follows.
    void handOn();
    /// Lets go of the keyboard.
    void release();
    /// Names the window that the grabs are on from now on.
    void moveTo(xcb_window_t window) { m_window = window; }
    /// Notes that the server has let go of the keyboard already.
    void wasLost() { setHeld(false); }
    /// Lets the application have a press that a passive grab caught without a hold.
    void refuse(xcb_window_t window);

    /// Whether an Option press was taken out of the queue before its raw event came, while the
    /// queue was let through; the rest is queued behind it.
    bool hasTakenOption() const { return m_takenOption != nullptr; }
    bool isTakenOption(xcb_keycode_t key, std::uint32_t time) const;
    void judgeTakenOption(std::uint32_t sequence, EventFate fate);
    void forgetTakenOption() { m_takenOption.reset(); }

  private:
    struct Key {
        xcb_keycode_t code;
        bool press;
        EventFate fate;
    };

    bool mustTakeOut() const;
    Taken step(const Key& key);
    XcbEvent await(std::uint32_t since, const Key& key);
    void letOneThrough(const xcb_key_press_event_t& event);
    bool passTheHold(void (X11FrozenQueue::*endGrab)());
    void comeHome();
    bool grabKeyboard();
    void endGrab();
    void replay();
    void forward(const xcb_key_press_event_t& event);
    void setHeld(bool held);

    X11EventReader& m_events;
    xcb_connection_t* const m_helper;
    const std::uint8_t m_keyboardEvent;
    const X11KeyWatch& m_watch;
    X11WindowManager& m_windowManager;
    InjectionGate& m_gate;
    const ExpectDelay& m_expectDelay;

    bool m_held = false;
    xcb_window_t m_window = XCB_NONE;  // of the grab
    xcb_connection_t* m_holder;        // whose grab it is
    std::uint32_t m_since = 0;         // the first sequence number whose events are in the queue
    bool m_beginsWithOption = false;   // delivered by a passive grab, and can be replayed
    XcbEvent m_takenOption;
    std::deque<Key> m_keys;
};

}  // namespace nulo
