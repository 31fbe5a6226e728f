#include "platform/x11/X11EventTapSession.h"

#include <xcb/xtest.h>

#include <algorithm>
#include <string_view>

namespace nulo {
namespace {

constexpr std::uint32_t rootEvents = XCB_EVENT_MASK_FOCUS_CHANGE | XCB_EVENT_MASK_PROPERTY_CHANGE;

const Error noAnswer{"the X server does not answer"};

bool isPresent(xcb_connection_t* connection, xcb_extension_t* extension) {
    const auto* data = xcb_get_extension_data(connection, extension);
    return data && data->present;
}

}  // namespace

X11EventTapSession::X11EventTapSession(InjectionGate& gate, const Handler& handler,
                                       ExpectDelay expectDelay)
    : m_gate(gate), m_handler(handler), m_expectDelay(std::move(expectDelay)) {}

X11EventTapSession::~X11EventTapSession() {
    if (m_connection && !xcb_connection_has_error(m_connection.get())) {
        // Another session may follow at once: the server must have seen the grabs go before.
        dropGrabs();
        xcb_ungrab_keyboard(m_connection.get(), XCB_CURRENT_TIME);
        focusWindow();
    }
    m_connection.reset();
    m_gate.setKeyboardHeld(false);
}

Result<std::unique_ptr<X11EventTapSession>> X11EventTapSession::open(InjectionGate& gate,
                                                                     const Handler& handler,
                                                                     ExpectDelay expectDelay,
                                                                     bool hideSpace) {
    std::unique_ptr<X11EventTapSession> session(
        new X11EventTapSession(gate, handler, std::move(expectDelay)));
    if (const auto error = session->connect())
        return *error;
    session->m_focusMayHaveMoved = true;
    session->refresh();
    if (xcb_connection_has_error(session->m_connection.get()))
        return noAnswer;
    session->lookForGrabOnDesktop();
    session->m_hidingSpace =
        hideSpace && session->m_keys->isOptionDown() && session->m_keys->isSpaceDown();
    return session;
}

std::optional<Error> X11EventTapSession::connect() {
    int screenNumber = 0;
    m_connection.reset(xcb_connect(nullptr, &screenNumber));
    m_probe.reset(xcb_connect(nullptr, nullptr));
    m_holder = m_connection.get();
    xcb_connection_t* connection = m_connection.get();
    if (xcb_connection_has_error(connection) || xcb_connection_has_error(m_probe.get()))
        return Error{"the X server cannot be reached"};
    auto screen = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (; screenNumber > 0 && screen.rem > 1; --screenNumber)
        xcb_screen_next(&screen);
    m_root = screen.data->root;

    if (!isPresent(connection, &xcb_test_id))
        return Error{"the X server has no XTEST extension"};
    if (!isPresent(connection, &xcb_input_id) || !isPresent(connection, &xcb_xkb_id))
        return Error{"the X server has no input or keyboard extension"};
    m_inputOpcode = xcb_get_extension_data(connection, &xcb_input_id)->major_opcode;
    m_keyboardEvent = xcb_get_extension_data(connection, &xcb_xkb_id)->first_event;

    const auto version = xcb_input_xi_query_version(connection, 2, 2);
    const auto keyboard = xcb_xkb_use_extension(connection, 1, 0);
    const auto atom = xcb_intern_atom(connection, 0, 18, "_NET_ACTIVE_WINDOW");
    const XcbMemory<xcb_input_xi_query_version_reply_t> versionReply(
        xcb_input_xi_query_version_reply(connection, version, nullptr));
    const XcbMemory<xcb_xkb_use_extension_reply_t> keyboardReply(
        xcb_xkb_use_extension_reply(connection, keyboard, nullptr));
    const XcbMemory<xcb_intern_atom_reply_t> atomReply(
        xcb_intern_atom_reply(connection, atom, nullptr));
    if (!versionReply || !keyboardReply || !atomReply)
        return noAnswer;
    if (std::pair(versionReply->major_version, versionReply->minor_version) <
        std::pair<std::uint16_t, std::uint16_t>(2, 1))
        return Error{"the X server's input extension is older than 2.1"};
    m_activeWindow = atomReply->atom;

    selectEvents();
    m_windowManager.emplace(connection, m_root);
    m_keys = X11KeyWatch::begin(connection, m_gate);
    if (!m_keys)
        return noAnswer;
    return std::nullopt;
}

void X11EventTapSession::selectEvents() {
    xcb_connection_t* connection = m_connection.get();
    struct {
        xcb_input_event_mask_t header;
        std::uint32_t bits;
    } mask{{XCB_INPUT_DEVICE_ALL, 1},
           XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE |
               XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS};
    xcb_input_xi_select_events(connection, m_root, 1, &mask.header);
    xcb_change_window_attributes(connection, m_root, XCB_CW_EVENT_MASK, &rootEvents);

    xcb_xkb_per_client_flags(connection, XCB_XKB_ID_USE_CORE_KBD,
                             XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT,
                             XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT, 0, 0, 0);
    selectKeyboardEvents(connection,
                         XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY |
                             XCB_XKB_EVENT_TYPE_STATE_NOTIFY | XCB_XKB_EVENT_TYPE_ACCESS_X_NOTIFY);
    NULO_XCB(xcb_xkb_use_extension, m_probe.get(), 1, 0);
    selectKeyboardEvents(m_probe.get(), XCB_XKB_EVENT_TYPE_ACCESS_X_NOTIFY);
}

void X11EventTapSession::selectKeyboardEvents(xcb_connection_t* connection, std::uint16_t events) {
    constexpr std::uint16_t mapParts = XCB_XKB_MAP_PART_KEY_SYMS | XCB_XKB_MAP_PART_MODIFIER_MAP;
    xcb_xkb_select_events_details_t details{};
    details.affectNewKeyboard = details.newKeyboardDetails = XCB_XKB_NKN_DETAIL_KEYCODES;
    details.affectState = details.stateDetails = XCB_XKB_STATE_PART_GROUP_STATE;
    details.affectAccessX = details.accessXDetails =
        XCB_XKB_AXN_DETAIL_SK_PRESS | XCB_XKB_AXN_DETAIL_SK_REJECT | XCB_XKB_AXN_DETAIL_BK_REJECT;
    xcb_xkb_select_events_aux(connection, XCB_XKB_ID_USE_CORE_KBD, events, 0, 0, mapParts, mapParts,
                              &details);
}

std::vector<int> X11EventTapSession::sockets() const {
    return {xcb_get_file_descriptor(m_connection.get()), xcb_get_file_descriptor(m_probe.get())};
}

void X11EventTapSession::begin() {
    if (m_hidingSpace)
        hold();
    if (!m_keys->isOptionDown() || !m_keys->isSpaceDown())
        reportOption(false);
}

bool X11EventTapSession::handleEvents() {
    while (!xcb_connection_has_error(m_connection.get())) {
        if (const Event event = nextEvent()) {
            handleEvent(*event);
            continue;
        }
        // Both may read more events while they wait for an answer.
        const bool answered = settle();
        if (!refresh() && !answered)
            break;
    }
    xcb_flush(m_connection.get());
    return !xcb_connection_has_error(m_connection.get());
}

X11EventTapSession::Event X11EventTapSession::nextEvent() {
    if (m_deferred.empty())
        return Event(xcb_poll_for_event(m_connection.get()));
    Event event = std::move(m_deferred.front());
    m_deferred.pop_front();
    return event;
}

void X11EventTapSession::handleEvent(const xcb_generic_event_t& event) {
    const int type = event.response_type & 0x7F;
    switch (type) {
        case XCB_GE_GENERIC:
            handleGenericEvent(event);
            return;
        case XCB_KEY_PRESS:
        case XCB_KEY_RELEASE:
            handleGrabbedKey(asKey(event));
            return;
        case XCB_FOCUS_IN:
        case XCB_FOCUS_OUT: {
            const auto mode = reinterpret_cast<const xcb_focus_in_event_t&>(event).mode;
            if (mode != XCB_NOTIFY_MODE_GRAB && mode != XCB_NOTIFY_MODE_UNGRAB)
                m_focusMayHaveMoved = true;
            return;
        }
        case XCB_PROPERTY_NOTIFY: {
            const auto property = reinterpret_cast<const xcb_property_notify_event_t&>(event).atom;
            if (property == m_activeWindow)
                m_focusMayHaveMoved = true;
            m_windowManager->propertyChanged(property);
            return;
        }
        case XCB_DESTROY_NOTIFY:
        case XCB_UNMAP_NOTIFY: {
            const auto window = reinterpret_cast<const xcb_unmap_notify_event_t&>(event).window;
            if (window == m_grabWindow)
                m_grabWindowIsGone = m_focusMayHaveMoved = true;
            return;
        }
        case XCB_MAPPING_NOTIFY:
            m_layoutChanged = true;
            return;
        default:
            if (type == m_keyboardEvent)
                handleKeyboardExtensionEvent(event);
    }
}

void X11EventTapSession::handleGenericEvent(const xcb_generic_event_t& event) {
    const auto& raw = reinterpret_cast<const xcb_input_raw_key_press_event_t&>(event);
    // Masters repeat what their slaves said, but only once the keyboard is no longer frozen.
    if (raw.extension != m_inputOpcode || raw.deviceid != raw.sourceid)
        return;
    if (raw.event_type == XCB_INPUT_RAW_BUTTON_PRESS)
        handleRawButton();
    else
        handleRawKey(raw, raw.event_type == XCB_INPUT_RAW_KEY_PRESS);
}

void X11EventTapSession::handleKeyboardExtensionEvent(const xcb_generic_event_t& event) {
    const auto& state = reinterpret_cast<const xcb_xkb_state_notify_event_t&>(event);
    if (state.xkbType == XCB_XKB_STATE_NOTIFY)
        m_keys->groupChanged(state.group);
    else if (state.xkbType != XCB_XKB_ACCESS_X_NOTIFY)
        m_layoutChanged = true;
}

void X11EventTapSession::handleRawKey(const xcb_input_raw_key_press_event_t& raw, bool press) {
    if (!m_keys->note(raw, press))
        return;
    const auto key = static_cast<xcb_keycode_t>(raw.detail);
    const bool queued = m_held && !isBefore(raw.full_sequence, m_heldSince);
    if (m_keys->isModifier(key))
        reportModifier(raw, press, queued);
    else
        reportKey(key, press, queued);
}

void X11EventTapSession::reportModifier(const xcb_input_raw_key_press_event_t& raw, bool press,
                                        bool queued) {
    const auto key = static_cast<xcb_keycode_t>(raw.detail);
    const bool isOption = m_keys->isOption(key);
    if (!queued) {
        // What is not held back cannot be swallowed, so it must not begin a chord: keys typed into
        // a screen lock, for one, which has the keyboard for itself.
        if (press && m_takenOption && isPressOf(m_takenOption, key, raw.time)) {
            m_heldSince = raw.full_sequence;
            m_armed = reportOption(true) == EventFate::swallow;
            if (!m_armed)
                forward(asKey(*std::exchange(m_takenOption, nullptr)));
        } else if (press && m_keys->optionKeys().test(key)) {
            m_heraldedOption = {key, raw.time, raw.full_sequence};
            awaitHeraldedGrab();
        } else if (!press && m_heraldedOption && m_heraldedOption->key == key) {
            // It went to another program, or there is a screen lock.
            m_heraldedOption.reset();
            lookForGrabOnDesktop();
        }
        if (!press && isOption && !m_keys->isOptionDown())
            reportOption(false);
        return;
    }
    const EventFate fate = reportOption(m_keys->isOptionDown());
    if (isOption && press && fate == EventFate::swallow)
        m_armed = true;
    enqueue(key, press, fate);
}

void X11EventTapSession::reportKey(xcb_keycode_t key, bool press, bool queued) {
    const bool isSpace = m_keys->isSpace(key);
    const EventFate fate = m_handler(
        {.type = press ? KeyEvent::Type::keyDown : KeyEvent::Type::keyUp, .isSpace = isSpace});
    if (isSpace && press && fate == EventFate::swallow) {
        m_hidingSpace = true;
        m_armed = false;
        m_takenOption.reset();
    } else if (isSpace && !press) {
        m_hidingSpace = false;
    }
    if (queued)
        enqueue(key, press, fate);
    else if (m_optionHandedOn)
        settle();
}

void X11EventTapSession::handleRawButton() {
    // A window manager that moves windows by Alt and drag would find the keyboard taken.
    if (!m_armed)
        return;
    m_handler({.type = KeyEvent::Type::keyDown});
    settle();
}

/// The grab's event comes right behind its herald, unless the queue of an earlier hold was in
/// between: then what the user did next may have been reported already. It must be known to be held
/// back before that is judged.
void X11EventTapSession::awaitHeraldedGrab() {
    // What the server sent before this answer is all there is.
    const XcbMemory<xcb_get_input_focus_reply_t> roundTrip(xcb_get_input_focus_reply(
        m_connection.get(), xcb_get_input_focus(m_connection.get()), nullptr));
    while (Event event{xcb_poll_for_event(m_connection.get())})
        m_deferred.push_back(std::move(event));
    const auto grabbed = std::find_if(m_deferred.begin(), m_deferred.end(), [this](const Event& e) {
        return isPressOf(e, m_heraldedOption->key, m_heraldedOption->time);
    });
    if (grabbed == m_deferred.end())
        return;
    const Event event = std::move(*grabbed);
    m_deferred.erase(grabbed);
    handleGrabbedKey(asKey(*event));
}

void X11EventTapSession::handleGrabbedKey(const xcb_key_press_event_t& event) {
    if (m_held)
        return;  // a leftover from before the present grab
    const bool press = (event.response_type & 0x7F) == XCB_KEY_PRESS;
    const bool heralded = press && m_heraldedOption && event.detail == m_heraldedOption->key &&
                          !isBefore(event.time, m_heraldedOption->time);
    // Later than its herald with Slow Keys. One that is up again by now was let go behind our back:
    // the application has the rest of it.
    if (heralded && m_keys->isOption(event.detail) && m_keys->isDown(event.detail)) {
        setHeld(true);
        m_heldSince = m_heraldedOption->sequence;
        m_heraldedOption.reset();
        m_desktopIsTaken = false;
        m_optionIsCurrent = true;
        m_armed = reportOption(true) == EventFate::swallow;
        m_queue.push_back({event.detail, true, EventFate::swallow});
        if (m_armed)
            return;
    }
    // Handed on before, not Option in this group, or repeated: for the application.
    replay();
    setHeld(false);
}

bool X11EventTapSession::isPressOf(const Event& event, xcb_keycode_t key, std::uint32_t time) {
    return (event->response_type & 0x7F) == XCB_KEY_PRESS && asKey(*event).detail == key &&
           !isBefore(asKey(*event).time, time);
}

EventFate X11EventTapSession::reportOption(bool set) {
    if (!set) {
        m_armed = false;
        m_takenOption.reset();
    }
    return m_handler({.type = KeyEvent::Type::flagsChanged, .optionSet = set});
}

void X11EventTapSession::letGo() {
    m_hidingSpace = false;
    reportOption(false);
    if (m_held)
        release();
    xcb_flush(m_connection.get());
}

const char* X11EventTapSession::obstacle() const {
    return m_windowIsTaken    ? "another program has taken the Alt key of the focused window"
           : m_desktopIsTaken ? "another program has taken the Alt key of the whole desktop"
                              : nullptr;
}

void X11EventTapSession::postOptionDown() {
    m_optionHandedOn = true;
    m_armed = false;
}

}  // namespace nulo
