#include "platform/x11/X11FrozenQueue.h"

namespace nulo {

X11FrozenQueue::X11FrozenQueue(X11EventReader& events, xcb_connection_t* helper,
                               std::uint8_t keyboardEvent, const X11KeyWatch& keys,
                               X11WindowManager& windowManager, InjectionGate& gate,
                               const ExpectDelay& expectDelay)
    : m_events(events),
      m_helper(helper),
      m_keyboardEvent(keyboardEvent),
      m_watch(keys),
      m_windowManager(windowManager),
      m_gate(gate),
      m_expectDelay(expectDelay),
      m_holder(events.connection()) {}

void X11FrozenQueue::beginWith(xcb_keycode_t option, std::uint32_t sequence, xcb_window_t window) {
    setHeld(true);
    m_window = window;
    m_since = sequence;
    m_beginsWithOption = true;
    add(option, true, EventFate::swallow);
}

void X11FrozenQueue::hold(xcb_window_t window) {
    setHeld(true);
    m_window = window;
    if (!grabKeyboard())
        setHeld(false);
}

/// Freezes the keyboard, or takes over a grab of our own with its queue; false when another program
/// has the keyboard.
bool X11FrozenQueue::grabKeyboard() {
    const auto request = xcb_grab_keyboard(m_holder, 0, m_window, XCB_CURRENT_TIME,
                                           XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_SYNC);
    const auto reply = owned(xcb_grab_keyboard_reply(m_holder, request, nullptr));
    if (!m_beginsWithOption)
        m_since = request.sequence;
    return reply && reply->status == XCB_GRAB_STATUS_SUCCESS;
}

X11FrozenQueue::Taken X11FrozenQueue::takeOutHidden() {
    if (m_beginsWithOption) {
        // The grab that an Option press began ends by itself with its release: take over from it.
        if (!grabKeyboard()) {
            release();
            return Taken::lost;
        }
        m_beginsWithOption = false;
        m_keys.pop_front();
    }
    while (mustTakeOut()) {
        const Key key = m_keys.front();
        m_keys.pop_front();
        if (const Taken taken = step(key); taken != Taken::done) {
            if (m_held)
                release();
            return taken;
        }
    }
    comeHome();
    return m_held ? Taken::done : Taken::lost;
}

/// Letting an Option press through would only have it caught again by the passive grab.
bool X11FrozenQueue::mustTakeOut() const {
    return std::any_of(m_keys.begin(), m_keys.end(), [this](const Key& key) {
        return key.fate == EventFate::swallow || (key.press && m_watch.isOptionKey(key.code));
    });
}

/// Takes the events up to this key's out of the queue.
X11FrozenQueue::Taken X11FrozenQueue::step(const Key& key) {
    while (m_held) {
        const auto request = xcb_allow_events(m_holder, XCB_ALLOW_SYNC_KEYBOARD, XCB_CURRENT_TIME);
        const XcbEvent event = await(request.sequence, key);
        if (!event)
            return Taken::lost;
        if (typeOf(*event) == m_keyboardEvent)
            return Taken::refused;
        const auto& taken = asKey(*event);
        const bool press = typeOf(*event) == XCB_KEY_PRESS;
        const bool found = taken.detail == key.code && press == key.press;
        const bool isRepeat = !found && press && m_watch.isSpace(taken.detail);
        if (found ? key.fate == EventFate::pass : !isRepeat)
            letOneThrough(taken);
        if (found)
            return Taken::done;
    }
    return Taken::lost;
}

/// Waits for what follows the request: an event of the queue, or the notice that there is none for
/// `key`. Slow Keys and Bounce Keys judge a press when it leaves the queue, and may refuse it along
/// with its release.
XcbEvent X11FrozenQueue::await(std::uint32_t since, const Key& key) {
    xcb_flush(m_holder);
    for (;;) {
        XcbEvent event(xcb_wait_for_event(m_holder));
        if (!event)
            return event;
        const int type = typeOf(*event);
        const auto& notice = reinterpret_cast<const xcb_xkb_access_x_notify_event_t&>(*event);
        const bool isNotice = type == m_keyboardEvent && notice.xkbType == XCB_XKB_ACCESS_X_NOTIFY;
        const bool follows = !isBefore(event->full_sequence, since);
        if (type == XCB_KEY_PRESS || type == XCB_KEY_RELEASE) {
            if (follows)
                return event;
        } else if (isNotice) {
            if (notice.detailt == slowKeyPressed)
                m_expectDelay(std::chrono::milliseconds(notice.slowKeysDelay));
            else if (follows && notice.keycode == key.code)
                return event;
        } else if (m_holder == m_events.connection()) {
            m_events.defer(std::move(event));
        }
    }
}

/// The application gets the event that was taken out of the queue last, but nothing of what is
/// queued behind it.
void X11FrozenQueue::letOneThrough(const xcb_key_press_event_t& event) {
    if (!passTheHold(&X11FrozenQueue::replay))
        forward(event);
}

/// Ends the holder's grab while the other connection keeps the keyboard frozen, and then holds it.
/// False, and nothing done, while a mouse button is down or a program has the pointer.
bool X11FrozenQueue::passTheHold(void (X11FrozenQueue::*endOfGrab)()) {
    xcb_connection_t* const other = m_holder == m_helper ? m_events.connection() : m_helper;
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(other)).data->root;
    const auto pointer = NULO_XCB(xcb_grab_pointer, other, 0, root, 0, XCB_GRAB_MODE_SYNC,
                                  XCB_GRAB_MODE_SYNC, XCB_NONE, XCB_NONE, XCB_CURRENT_TIME);
    if (!pointer || pointer->status != XCB_GRAB_STATUS_SUCCESS)
        return false;
    (this->*endOfGrab)();
    NULO_XCB(xcb_get_input_focus, m_holder);  // returns when the server has done it
    m_holder = other;
    const auto keyboard = NULO_XCB(xcb_grab_keyboard, other, 0, m_window, XCB_CURRENT_TIME,
                                   XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_SYNC);
    xcb_ungrab_pointer(other, XCB_CURRENT_TIME);
    NULO_XCB(xcb_get_input_focus, other);
    if (!keyboard || keyboard->status != XCB_GRAB_STATUS_SUCCESS)
        setHeld(false);  // the window is gone
    return true;
}

/// Has the first connection hold the keyboard, whose passive grabs are to join in.
void X11FrozenQueue::comeHome() {
    if (!m_held || m_holder == m_events.connection() || passTheHold(&X11FrozenQueue::endGrab))
        return;
    endGrab();
    m_holder = m_events.connection();
    if (!grabKeyboard())
        setHeld(false);
}

/// Sends the application a copy of an event that cannot be replayed. Programs that ask for XInput 2
/// events do not see it.
void X11FrozenQueue::forward(const xcb_key_press_event_t& event) {
    xcb_key_press_event_t copy = event;
    copy.response_type &= 0x7F;
    xcb_send_event(m_events.connection(), 1, m_window,
                   XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_KEY_RELEASE,
                   reinterpret_cast<const char*>(&copy));
}

/// A repeat of Space that is among the events is caught by a grab for the moment.
void X11FrozenQueue::letThrough() {
    xcb_connection_t* const connection = m_events.connection();
    const auto spaces = m_watch.spacesDown();
    for (const auto space : spaces)
        xcb_grab_key(connection, 0, m_window, XCB_MOD_MASK_ANY, space, XCB_GRAB_MODE_ASYNC,
                     XCB_GRAB_MODE_SYNC);
    const auto ungrab = xcb_ungrab_keyboard(connection, XCB_CURRENT_TIME);
    m_windowManager.grabHasEnded(m_window);
    hold(m_window);
    for (const auto space : spaces)
        xcb_ungrab_key(connection, space, m_window, XCB_MOD_MASK_ANY);
    // The user may have pressed Option meanwhile: then the passive grab caught it, and the new hold
    // took it out of the queue.
    m_takenOption = m_events.takeFirst([&](const xcb_generic_event_t& event) {
        return typeOf(event) == XCB_KEY_PRESS && !isBefore(event.full_sequence, ungrab.sequence) &&
               m_watch.isOptionKey(asKey(event).detail);
    });
}

bool X11FrozenQueue::isTakenOption(xcb_keycode_t key, std::uint32_t time) const {
    return m_takenOption && isPressOf(*m_takenOption, key, time);
}

void X11FrozenQueue::judgeTakenOption(std::uint32_t sequence, EventFate fate) {
    m_since = sequence;
    if (fate == EventFate::pass)
        forward(asKey(*std::exchange(m_takenOption, nullptr)));
}

void X11FrozenQueue::letGoFromNext() {
    Key key = m_keys.front();
    if (key.press)
        return release();
    key.fate = EventFate::swallow;  // taken out, not let through alone
    if (step(key) == Taken::done)
        replay();
    else if (m_held)
        endGrab();
    setHeld(false);
}

void X11FrozenQueue::handOn() {
    if (m_held && m_beginsWithOption)
        return refuse(m_window);
    if (m_takenOption)
        forward(asKey(*m_takenOption));
    release();
}

void X11FrozenQueue::refuse(xcb_window_t window) {
    m_window = window;
    replay();
    setHeld(false);
}

void X11FrozenQueue::release() {
    endGrab();
    setHeld(false);
}

void X11FrozenQueue::endGrab() {
    xcb_ungrab_keyboard(m_holder, XCB_CURRENT_TIME);
    if (m_holder == m_helper)
        NULO_XCB(xcb_get_input_focus, m_holder);  // before the first connection grabs anew
    m_windowManager.grabHasEnded(m_window);
}

/// The application gets the event that was taken out of the queue last, and all that follows.
void X11FrozenQueue::replay() {
    xcb_allow_events(m_holder, XCB_ALLOW_REPLAY_KEYBOARD, XCB_CURRENT_TIME);
    xcb_flush(m_holder);
    m_windowManager.grabHasEnded(m_window);
}

void X11FrozenQueue::setHeld(bool held) {
    m_held = held;
    m_holder = m_events.connection();
    m_beginsWithOption = false;
    m_takenOption.reset();
    m_keys.clear();
    m_gate.setKeyboardHeld(held);
}

}  // namespace nulo
