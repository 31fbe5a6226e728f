// How X11EventTapSession answers the server: the frozen queue and the passive grabs.

#include <algorithm>

#include "platform/x11/X11EventTapSession.h"

namespace nulo {
namespace {

constexpr std::uint32_t focusEvents = XCB_EVENT_MASK_FOCUS_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY;

}  // namespace

void X11EventTapSession::enqueue(xcb_keycode_t key, bool press, EventFate fate) {
    m_queue.push_back({key, press, fate});
    // A key that passes while Space is hidden waits for what else has arrived: once it is let
    // through, so is everything behind it.
    if (m_optionHandedOn || fate == EventFate::swallow || !mustHold())
        settle();
}

/// Answers what is decided; whether the server was talked to.
bool X11EventTapSession::settle() {
    if (m_optionHandedOn) {
        handOn();
        return true;
    }
    if (m_held && mustHold() && !m_takenOption && !m_keys->isOptionDown() &&
        !m_keys->isSpaceDown()) {
        // A new layout may have given the keys that were held back another meaning.
        m_hidingSpace = false;
        reportOption(false);
    }
    if (!m_held || m_armed || (m_queue.empty() && mustHold()))
        return false;
    if (m_optionIsCurrent) {
        // The grab that an Option press began ends by itself with its release: take over from it.
        if (!grabKeyboard()) {
            release();
            return true;
        }
        m_optionIsCurrent = false;
        m_queue.pop_front();
    }
    while (mustTakeOut()) {
        const QueuedKey key = m_queue.front();
        m_queue.pop_front();
        if (!stepTo(key))
            return true;
    }
    if (m_held && mustHold() && m_holder != m_connection.get() &&
        !passTheHold(&X11EventTapSession::endGrab)) {
        endGrab();
        hold();
    }
    if (!m_queue.empty() && mustHold())
        letThrough();
    else if (!m_queue.empty() && !m_queue.front().press)
        replayRelease();
    else if (!mustHold())
        release();
    return true;
}

/// Whether something in the queue must not reach the application. Letting an Option press through
/// would only have it caught again by the passive grab.
bool X11EventTapSession::mustTakeOut() const {
    return std::any_of(m_queue.begin(), m_queue.end(), [this](const QueuedKey& key) {
        return key.fate == EventFate::swallow || (key.press && m_keys->optionKeys().test(key.key));
    });
}

/// Space's release, mostly, without the repeats of Space that may be queued before it.
void X11EventTapSession::replayRelease() {
    QueuedKey key = m_queue.front();
    key.fate = EventFate::swallow;  // taken out, not copied
    if (!stepTo(key))
        return;
    replay();
    setHeld(false);
}

void X11EventTapSession::handOn() {
    m_optionHandedOn = false;
    m_hidingSpace = false;
    if (m_held && m_optionIsCurrent) {
        replay();
        setHeld(false);
    } else {
        if (m_takenOption)
            forward(asKey(*m_takenOption));
        release();
    }
}

/// Takes the queue's events up to this one out of it; false when it will not come.
bool X11EventTapSession::stepTo(const QueuedKey& key) {
    for (;;) {
        const auto request = xcb_allow_events(m_holder, XCB_ALLOW_SYNC_KEYBOARD, XCB_CURRENT_TIME);
        const Event event = awaitGrabbedKey(request.sequence, key);
        if (!event)
            return false;
        if (typeOf(*event) == m_keyboardEvent) {
            // Nothing of the chord is down for the server.
            m_hidingSpace = false;
            release();
            return false;
        }
        const auto& taken = asKey(*event);
        const bool press = typeOf(*event) == XCB_KEY_PRESS;
        const bool found = taken.detail == key.key && press == key.press;
        const bool isRepeat = !found && press && m_keys->isSpace(taken.detail);
        if (found ? key.fate == EventFate::pass : !isRepeat)
            letOneThrough(taken);
        if (found)
            return true;
    }
}

/// What follows the request: an event of the queue, or the notice that `key` is none. Slow Keys and
/// Bounce Keys judge a press when it leaves the queue, and may refuse it along with its release.
X11EventTapSession::Event X11EventTapSession::awaitGrabbedKey(std::uint32_t since,
                                                              const QueuedKey& key) {
    xcb_flush(m_holder);
    for (;;) {
        Event event(xcb_wait_for_event(m_holder));
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
            constexpr int slowKeyPressed = 0;  // the header knows the mask of it only
            if (notice.detailt == slowKeyPressed)
                m_expectDelay(std::chrono::milliseconds(notice.slowKeysDelay));
            else if (follows && notice.keycode == key.key)
                return event;
        } else if (m_holder == m_connection.get()) {
            m_deferred.push_back(std::move(event));
        }
    }
}

/// The application gets the event that was taken out of the queue last, but nothing of what is
/// queued behind it.
void X11EventTapSession::letOneThrough(const xcb_key_press_event_t& event) {
    if (!passTheHold(&X11EventTapSession::replay))
        forward(event);
}

/// Ends the holder's grab while the other connection keeps the keyboard frozen, and then holds it:
/// a grab of the pointer freezes it too, for every client but its own. False, and nothing done,
/// while a mouse button is down or a program has the pointer.
bool X11EventTapSession::passTheHold(void (X11EventTapSession::*endOfMyGrab)()) {
    xcb_connection_t* const other = m_holder == m_probe.get() ? m_connection.get() : m_probe.get();
    const auto pointer = NULO_XCB(xcb_grab_pointer, other, 0, m_root, 0, XCB_GRAB_MODE_SYNC,
                                  XCB_GRAB_MODE_SYNC, XCB_NONE, XCB_NONE, XCB_CURRENT_TIME);
    if (!pointer || pointer->status != XCB_GRAB_STATUS_SUCCESS)
        return false;
    (this->*endOfMyGrab)();
    NULO_XCB(xcb_get_input_focus, m_holder);  // returns when the server has done it
    m_holder = other;
    NULO_XCB(xcb_grab_keyboard, other, 0, m_grabWindow, XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC,
             XCB_GRAB_MODE_SYNC);
    xcb_ungrab_pointer(other, XCB_CURRENT_TIME);
    NULO_XCB(xcb_get_input_focus, other);
    return true;
}

void X11EventTapSession::endGrab() {
    xcb_ungrab_keyboard(m_holder, XCB_CURRENT_TIME);
    if (m_holder != m_connection.get())
        NULO_XCB(xcb_get_input_focus, m_holder);  // before the first connection grabs anew
    m_windowManager->grabHasEnded(m_grabWindow);
}

/// For an event that cannot be replayed: the application gets a copy, which programs that ask for
/// XInput 2 events do not see.
void X11EventTapSession::forward(const xcb_key_press_event_t& event) {
    xcb_key_press_event_t copy = event;
    copy.response_type &= 0x7F;
    xcb_send_event(m_connection.get(), 1, m_grabWindow,
                   XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_KEY_RELEASE,
                   reinterpret_cast<const char*>(&copy));
}

/// Lets the queue's events go their usual way, window manager included, and holds what follows. A
/// repeat of Space that is among them is caught by a grab for the moment.
void X11EventTapSession::letThrough() {
    xcb_connection_t* connection = m_connection.get();
    const auto spaces = m_keys->spacesDown();
    for (const auto space : spaces)
        xcb_grab_key(connection, 0, m_grabWindow, XCB_MOD_MASK_ANY, space, XCB_GRAB_MODE_ASYNC,
                     XCB_GRAB_MODE_SYNC);
    const auto ungrab = xcb_ungrab_keyboard(connection, XCB_CURRENT_TIME);
    m_windowManager->grabHasEnded(m_grabWindow);
    hold();
    for (const auto space : spaces)
        xcb_ungrab_key(connection, space, m_grabWindow, XCB_MOD_MASK_ANY);
    findOptionCaughtSince(ungrab.sequence);
}

/// The user may have pressed Option meanwhile: then the passive grab caught it, and the new hold
/// took it out of the queue.
void X11EventTapSession::findOptionCaughtSince(std::uint32_t sequence) {
    while (Event event{xcb_poll_for_queued_event(m_connection.get())})
        m_deferred.push_back(std::move(event));
    const auto caught = std::find_if(m_deferred.begin(), m_deferred.end(), [&](const Event& event) {
        return (event->response_type & 0x7F) == XCB_KEY_PRESS &&
               !isBefore(event->full_sequence, sequence) &&
               m_keys->optionKeys().test(asKey(*event).detail);
    });
    if (caught == m_deferred.end())
        return;
    m_takenOption = std::move(*caught);
    m_deferred.erase(caught);
}

void X11EventTapSession::hold() {
    setHeld(true);
    if (!grabKeyboard())
        setHeld(false);
}

/// Freezes the keyboard, or takes over a grab of our own with its queue; false when another program
/// has the keyboard.
bool X11EventTapSession::grabKeyboard() {
    const auto request = xcb_grab_keyboard(m_connection.get(), 0, m_grabWindow, XCB_CURRENT_TIME,
                                           XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_SYNC);
    const XcbMemory<xcb_grab_keyboard_reply_t> reply(
        xcb_grab_keyboard_reply(m_connection.get(), request, nullptr));
    if (!m_optionIsCurrent)
        m_heldSince = request.sequence;
    return reply && reply->status == XCB_GRAB_STATUS_SUCCESS;
}

void X11EventTapSession::release() {
    endGrab();
    setHeld(false);
}

/// The application gets the key that was taken out of the queue last, and all that follows.
void X11EventTapSession::replay() {
    xcb_allow_events(m_holder, XCB_ALLOW_REPLAY_KEYBOARD, XCB_CURRENT_TIME);
    xcb_flush(m_holder);
    m_windowManager->grabHasEnded(m_grabWindow);
}

void X11EventTapSession::setHeld(bool held) {
    m_held = held;
    m_holder = m_connection.get();
    m_optionIsCurrent = false;
    m_takenOption.reset();
    m_queue.clear();
    m_gate.setKeyboardHeld(held);
}

/// Follows the focus and the layout; whether there was something to do.
bool X11EventTapSession::refresh() {
    if (m_grabWindowIsGone && m_held) {
        // The server has dropped the grab with its window, and let the queue go.
        setHeld(false);
        if (m_armed)
            reportOption(false);
    }
    if (m_armed || !(m_focusMayHaveMoved || m_layoutChanged))
        return false;
    if (m_layoutChanged) {
        m_layoutChanged = false;
        if (m_keys->layoutChanged()) {
            dropGrabs();
            m_focusMayHaveMoved = true;
        }
    }
    if (m_focusMayHaveMoved) {
        m_focusMayHaveMoved = m_grabWindowIsGone = false;
        // The focus may move on before events are selected on its new window.
        xcb_window_t window = focusWindow();
        for (int tries = 0; window != m_grabWindow && tries < 5; ++tries) {
            moveGrabs(window);
            window = focusWindow();
        }
    }
    if (m_hidingSpace && !m_held)
        hold();
    return true;
}

xcb_window_t X11EventTapSession::focusWindow() {
    const XcbMemory<xcb_get_input_focus_reply_t> reply(xcb_get_input_focus_reply(
        m_connection.get(), xcb_get_input_focus(m_connection.get()), nullptr));
    if (!reply || reply->focus == XCB_NONE || reply->focus == XCB_INPUT_FOCUS_POINTER_ROOT)
        return m_root;
    return reply->focus;
}

void X11EventTapSession::moveGrabs(xcb_window_t window) {
    dropGrabs();
    m_grabWindow = window;
    if (window != m_root)
        xcb_change_window_attributes(m_connection.get(), window, XCB_CW_EVENT_MASK, &focusEvents);
    m_windowIsTaken = !grabOptionKeys();
}

bool X11EventTapSession::grabOptionKeys() {
    std::vector<xcb_void_cookie_t> requests;
    for (int key = 0; key < 256; ++key)
        if (m_keys->optionKeys().test(key))
            requests.push_back(xcb_grab_key_checked(
                m_connection.get(), 0, m_grabWindow, XCB_MOD_MASK_ANY,
                static_cast<xcb_keycode_t>(key), XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_SYNC));
    bool granted = true;
    for (const auto request : requests) {
        const XcbMemory<xcb_generic_error_t> error(xcb_request_check(m_connection.get(), request));
        granted = granted && (!error || error->error_code != XCB_ACCESS);
    }
    return granted;
}

void X11EventTapSession::dropGrabs() {
    if (m_grabWindow == XCB_NONE)
        return;
    constexpr std::uint32_t nothing = XCB_EVENT_MASK_NO_EVENT;
    xcb_ungrab_key(m_connection.get(), XCB_GRAB_ANY, m_grabWindow, XCB_MOD_MASK_ANY);
    if (m_grabWindow != m_root)
        xcb_change_window_attributes(m_connection.get(), m_grabWindow, XCB_CW_EVENT_MASK, &nothing);
    m_grabWindow = XCB_NONE;
}

/// A grab on the root goes before all others, so its program gets Option without a trace here.
void X11EventTapSession::lookForGrabOnDesktop() {
    m_desktopIsTaken = false;
    if (m_grabWindow == m_root)
        return;
    xcb_connection_t* probe = m_probe.get();
    for (int key = 0; key < 256; ++key) {
        if (!m_keys->optionKeys().test(key))
            continue;
        const auto code = static_cast<xcb_keycode_t>(key);
        const auto grab = xcb_grab_key_checked(probe, 0, m_root, 0, code, XCB_GRAB_MODE_ASYNC,
                                               XCB_GRAB_MODE_ASYNC);
        xcb_ungrab_key(probe, code, m_root, 0);
        const XcbMemory<xcb_generic_error_t> error(xcb_request_check(probe, grab));
        m_desktopIsTaken = m_desktopIsTaken || (error && error->error_code == XCB_ACCESS);
    }
}

bool X11EventTapSession::grabsAreAlive() {
    lookForGrabOnDesktop();
    xcb_keycode_t key = 0;
    while (key < 255 && !m_keys->optionKeys().test(key))
        ++key;
    if (!m_keys->optionKeys().test(key))
        return true;
    xcb_connection_t* probe = m_probe.get();
    const XcbMemory<xcb_generic_error_t> error(
        xcb_request_check(probe, xcb_grab_key_checked(probe, 0, m_grabWindow, XCB_MOD_MASK_ANY, key,
                                                      XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC)));
    if (error)
        return true;
    xcb_ungrab_key(probe, key, m_grabWindow, XCB_MOD_MASK_ANY);
    xcb_flush(probe);
    return false;
}

}  // namespace nulo
