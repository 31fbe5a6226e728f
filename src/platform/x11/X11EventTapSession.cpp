#include "platform/x11/X11EventTapSession.h"

#include <xcb/xtest.h>

#include <string_view>

namespace nulo {
namespace {

constexpr std::uint32_t rootEvents = XCB_EVENT_MASK_FOCUS_CHANGE | XCB_EVENT_MASK_PROPERTY_CHANGE;

const Error noAnswer{"the X server does not answer"};

bool isPresent(xcb_connection_t* connection, xcb_extension_t* extension) {
    const auto* data = xcb_get_extension_data(connection, extension);
    return data && data->present;
}

bool isSlowPress(const xcb_generic_event_t& event, xcb_keycode_t key) {
    const auto& notice = reinterpret_cast<const xcb_xkb_access_x_notify_event_t&>(event);
    return notice.detailt == slowKeyPressed && notice.keycode == key;
}

}  // namespace

X11EventTapSession::X11EventTapSession(InjectionGate& gate, const Handler& handler,
                                       ExpectDelay expectDelay)
    : m_gate(gate), m_handler(handler), m_expectDelay(std::move(expectDelay)) {}

X11EventTapSession::~X11EventTapSession() {
    if (!m_grabs || xcb_connection_has_error(m_connection.get()))
        return;
    // Another session may follow at once: the server must have seen the grabs go before.
    m_grabs->drop();
    xcb_ungrab_keyboard(m_connection.get(), XCB_CURRENT_TIME);
    NULO_XCB(xcb_get_input_focus, m_connection.get());
}

Outcome X11EventTapSession::check(InjectionGate& gate, const Handler& handler, const Chord& chord) {
    X11EventTapSession session(gate, handler, [](auto) {});
    if (const auto error = session.connect(chord))
        return *error;
    return Success{};
}

Result<std::unique_ptr<X11EventTapSession>> X11EventTapSession::open(InjectionGate& gate,
                                                                     const Handler& handler,
                                                                     const Chord& chord,
                                                                     ExpectDelay expectDelay,
                                                                     bool hideSpace) {
    std::unique_ptr<X11EventTapSession> session(
        new X11EventTapSession(gate, handler, std::move(expectDelay)));
    if (const auto error = session->connect(chord))
        return *error;
    session->m_focusMayHaveMoved = true;
    session->refresh();
    session->m_grabs->lookForGrabOnDesktop();
    if (xcb_connection_has_error(session->m_connection.get()))
        return noAnswer;
    session->m_hidingSpace =
        hideSpace && session->m_keys->isOptionDown() && session->m_keys->isSpaceDown();
    return session;
}

std::optional<Error> X11EventTapSession::connect(const Chord& chord) {
    int screenNumber = 0;
    m_connection = connectToDisplay(nullptr, &screenNumber);
    m_helper = connectToDisplay(nullptr);
    xcb_connection_t* const connection = m_connection.get();
    if (xcb_connection_has_error(connection) || xcb_connection_has_error(m_helper.get()))
        return Error{"the X server cannot be reached"};
    auto screen = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (; screenNumber > 0 && screen.rem > 1; --screenNumber)
        xcb_screen_next(&screen);
    const xcb_window_t root = screen.data->root;

    if (!isPresent(connection, &xcb_test_id))
        return Error{"the X server has no XTEST extension"};
    if (!isPresent(connection, &xcb_input_id) || !isPresent(connection, &xcb_xkb_id))
        return Error{"the X server has no input or keyboard extension"};
    m_inputOpcode = xcb_get_extension_data(connection, &xcb_input_id)->major_opcode;
    m_keyboardEvent = xcb_get_extension_data(connection, &xcb_xkb_id)->first_event;

    const auto version = NULO_XCB(xcb_input_xi_query_version, connection, 2, 2);
    const auto keyboard = NULO_XCB(xcb_xkb_use_extension, connection, 1, 0);
    m_activeWindow = atomOf(connection, "_NET_ACTIVE_WINDOW");
    if (!version || !keyboard || m_activeWindow == XCB_ATOM_NONE)
        return noAnswer;
    if (std::pair(version->major_version, version->minor_version) <
        std::pair<std::uint16_t, std::uint16_t>(2, 1))
        return Error{"the X server's input extension is older than 2.1"};

    selectEvents(root);
    m_events.emplace(connection);
    m_windowManager.emplace(connection, root);
    m_keys = X11KeyWatch::begin(connection, m_gate, chord);
    if (!m_keys)
        return noAnswer;
    if (!m_keys->hasChord())
        return Error{"the keyboard's layout lacks a key of " + chord.name()};
    if (chord.modifiers.size() == 1)
        m_swallowedOption = *chord.modifiers.begin();
    m_grabs.emplace(connection, m_helper.get(), root, *m_keys);
    m_queue.emplace(*m_events, m_helper.get(), m_keyboardEvent, *m_keys, *m_windowManager, m_gate,
                    m_expectDelay);
    return std::nullopt;
}

void X11EventTapSession::selectEvents(xcb_window_t root) {
    xcb_connection_t* const connection = m_connection.get();
    struct {
        xcb_input_event_mask_t header;
        std::uint32_t bits;
    } mask{{XCB_INPUT_DEVICE_ALL, 1},
           XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE |
               XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS};
    xcb_input_xi_select_events(connection, root, 1, &mask.header);
    xcb_change_window_attributes(connection, root, XCB_CW_EVENT_MASK, &rootEvents);

    xcb_xkb_per_client_flags(connection, XCB_XKB_ID_USE_CORE_KBD,
                             XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT,
                             XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT, 0, 0, 0);
    selectKeyboardEvents(connection,
                         XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY |
                             XCB_XKB_EVENT_TYPE_STATE_NOTIFY | XCB_XKB_EVENT_TYPE_ACCESS_X_NOTIFY);
    NULO_XCB(xcb_xkb_use_extension, m_helper.get(), 1, 0);
    selectKeyboardEvents(m_helper.get(), XCB_XKB_EVENT_TYPE_ACCESS_X_NOTIFY);
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
    return {xcb_get_file_descriptor(m_connection.get()), xcb_get_file_descriptor(m_helper.get())};
}

void X11EventTapSession::begin() {
    if (m_hidingSpace)
        m_queue->hold(m_grabs->window());
    if (!m_keys->isOptionDown() || !m_keys->isSpaceDown())
        reportOption(false);
}

bool X11EventTapSession::handleEvents() {
    while (!xcb_connection_has_error(m_connection.get())) {
        if (const XcbEvent event = m_events->next()) {
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

void X11EventTapSession::handleEvent(const xcb_generic_event_t& event) {
    const int type = typeOf(event);
    switch (type) {
        case XCB_GE_GENERIC:
            handleRawEvent(reinterpret_cast<const xcb_input_raw_key_press_event_t&>(event));
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
            if (window == m_grabs->window())
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

void X11EventTapSession::handleRawEvent(const xcb_input_raw_key_press_event_t& raw) {
    // Masters repeat what their slaves said, but only once the keyboard is no longer frozen.
    if (raw.extension != m_inputOpcode || raw.deviceid != raw.sourceid)
        return;
    if (raw.event_type == XCB_INPUT_RAW_BUTTON_PRESS)
        return reportButton();
    const bool press = raw.event_type == XCB_INPUT_RAW_KEY_PRESS;
    if (!m_keys->note(raw, press))
        return;
    const auto key = static_cast<xcb_keycode_t>(raw.detail);
    const bool queued = m_queue->holds(raw.full_sequence);
    if (m_keys->isModifier(key))
        reportModifier(raw, press, queued);
    else
        reportKey(key, press, queued);
}

void X11EventTapSession::handleKeyboardExtensionEvent(const xcb_generic_event_t& event) {
    const auto& state = reinterpret_cast<const xcb_xkb_state_notify_event_t&>(event);
    if (state.xkbType == XCB_XKB_STATE_NOTIFY)
        m_keys->groupChanged(state.group);
    else if (state.xkbType != XCB_XKB_ACCESS_X_NOTIFY)
        m_layoutChanged = true;
    else if (m_heraldedOption && isSlowPress(event, m_heraldedOption->key))
        m_heraldedOption->isDelayed = true;
}

void X11EventTapSession::handleGrabbedKey(const xcb_key_press_event_t& event) {
    if (m_queue->isHeld())
        return;  // a leftover from before the present hold
    // When the key is up again already, the application has got its release, and needs the press.
    if (isHeralded(event) && m_keys->isOption(event.detail) && m_keys->isDown(event.detail)) {
        m_queue->beginWith(event.detail, m_heraldedOption->sequence, m_grabs->window());
        m_heraldedOption.reset();
        m_grabs->optionHasArrived();
        if (reportOptionPress(event.detail) == EventFate::swallow)
            return;
    }
    // Handed on before, not Option in this group, repeated, or not the last of the chord's
    // modifiers: for the application.
    m_queue->refuse(m_grabs->window());
}

bool X11EventTapSession::isHeralded(const xcb_key_press_event_t& event) const {
    if (!m_heraldedOption)
        return false;
    const auto& [key, time, sequence, isDelayed] = *m_heraldedOption;
    return isPressOf(reinterpret_cast<const xcb_generic_event_t&>(event), key,
                     isDelayed && isBefore(time, event.time) ? event.time : time);
}

void X11EventTapSession::reportModifier(const xcb_input_raw_key_press_event_t& raw, bool press,
                                        bool queued) {
    if (!queued)
        return reportUnqueuedModifier(raw, press);
    const auto key = static_cast<xcb_keycode_t>(raw.detail);
    if (press && m_keys->isOption(key))
        return enqueue(key, press, reportOptionPress(key));
    const EventFate fate = reportOption(m_keys->isOptionDown());
    const bool mustBeSeen = m_keys->isOption(key) && m_keys->optionOf(key) != m_swallowedOption;
    enqueue(key, press, mustBeSeen ? EventFate::pass : fate);
}

/// A press that is not held back cannot be swallowed, so it must not begin a chord. Keys typed into
/// a screen lock, which has the keyboard for itself, are such presses.
void X11EventTapSession::reportUnqueuedModifier(const xcb_input_raw_key_press_event_t& raw,
                                                bool press) {
    const auto key = static_cast<xcb_keycode_t>(raw.detail);
    if (press && m_queue->isTakenOption(key, raw.time)) {
        m_queue->judgeTakenOption(raw.full_sequence, reportOptionPress(key));
    } else if (press && m_keys->isOptionKey(key)) {
        m_heraldedOption = {.key = key, .time = raw.time, .sequence = raw.full_sequence};
        // The passive grab's event mostly comes next. Keys that were pressed meanwhile may come
        // before it, when the grab had to wait for an earlier queue to end; they are to be judged
        // as held back, so the grab's event is looked for first.
        const auto grabbed = m_events->takeFirst(
            [&](const xcb_generic_event_t& event) { return isPressOf(event, key, raw.time); });
        if (grabbed)
            handleGrabbedKey(asKey(*grabbed));
    } else if (!press && m_heraldedOption && m_heraldedOption->key == key) {
        // The press went to another program: a hot-key tool, an open menu, or a screen lock.
        m_heraldedOption.reset();
        m_grabs->lookForGrabOnDesktop();
    }
    if (!press && m_keys->isOption(key) && !m_keys->isOptionDown())
        reportOption(false);
}

void X11EventTapSession::reportKey(xcb_keycode_t key, bool press, bool queued) {
    const bool isSpace = m_keys->isSpace(key);
    const EventFate fate = m_handler(
        {.type = press ? KeyEvent::Type::keyDown : KeyEvent::Type::keyUp, .isSpace = isSpace});
    if (isSpace && press && fate == EventFate::swallow) {
        m_hidingSpace = true;
        m_armed = false;
        m_queue->forgetTakenOption();
    } else if (isSpace && !press) {
        m_hidingSpace = false;
    }
    if (queued)
        enqueue(key, press, fate);
    else if (m_optionHandedOn)
        settle();
}

void X11EventTapSession::reportButton() {
    // A window manager that moves windows by Alt and drag would find the keyboard taken.
    if (!m_armed)
        return;
    m_handler({.type = KeyEvent::Type::keyDown});
    settle();
}

/// A key that does not complete the chord's modifiers says nothing yet.
EventFate X11EventTapSession::reportOptionPress(xcb_keycode_t key) {
    if (!m_keys->isOptionDown() || reportOption(true) == EventFate::pass)
        return EventFate::pass;
    m_armed = true;
    m_swallowedOption = m_keys->optionOf(key);
    return EventFate::swallow;
}

EventFate X11EventTapSession::reportOption(bool set) {
    if (!set) {
        m_armed = false;
        m_queue->forgetTakenOption();
    }
    return m_handler({.type = KeyEvent::Type::flagsChanged, .optionSet = set});
}

void X11EventTapSession::postOptionDown() {
    m_optionHandedOn = true;
    m_armed = false;
}

void X11EventTapSession::letGo() {
    m_hidingSpace = false;
    reportOption(false);
    if (m_queue->isHeld())
        m_queue->release();
    xcb_flush(m_connection.get());
}

void X11EventTapSession::enqueue(xcb_keycode_t key, bool press, EventFate fate) {
    m_queue->add(key, press, fate);
    // A key that passes while Space is hidden waits for what else has arrived: once it is let
    // through, so is everything behind it.
    if (m_optionHandedOn || fate == EventFate::swallow || !mustHold())
        settle();
}

/// Answers what is decided; tells whether the server was talked to.
bool X11EventTapSession::settle() {
    if (m_optionHandedOn) {
        m_optionHandedOn = false;
        m_hidingSpace = false;
        m_queue->handOn();
        return true;
    }
    if (m_queue->isHeld() && mustHold() && !m_queue->hasTakenOption() && !m_keys->isOptionDown() &&
        !m_keys->isSpaceDown()) {
        // A new layout may have given the keys that were held back another meaning.
        m_hidingSpace = false;
        reportOption(false);
    }
    if (!m_queue->isHeld() || m_armed || (m_queue->isEmpty() && mustHold()))
        return false;
    const auto taken = m_queue->takeOutHidden();
    if (taken == X11FrozenQueue::Taken::refused)
        m_hidingSpace = false;  // for the server, no key of the chord is down
    if (taken != X11FrozenQueue::Taken::done)
        return true;
    if (m_queue->isEmpty() && !mustHold())
        m_queue->release();
    else if (!m_queue->isEmpty() && mustHold())
        m_queue->letThrough();
    else if (!m_queue->isEmpty())
        m_queue->letGoFromNext();
    return true;
}

/// Follows the focus and the layout; tells whether there was something to do.
bool X11EventTapSession::refresh() {
    if (m_grabWindowIsGone && m_queue->isHeld()) {
        // The server has dropped the grab with its window, and let the queue go.
        m_queue->wasLost();
        if (m_armed)
            reportOption(false);
    }
    if (m_armed || !(m_focusMayHaveMoved || m_layoutChanged))
        return false;
    if (m_layoutChanged) {
        m_layoutChanged = false;
        if (m_keys->layoutChanged()) {
            m_grabs->drop();
            m_focusMayHaveMoved = true;
        }
    }
    if (m_focusMayHaveMoved) {
        m_focusMayHaveMoved = false;
        // Another window may have got its id already.
        if (std::exchange(m_grabWindowIsGone, false))
            m_grabs->drop();
        m_grabs->followFocus();
        m_queue->moveTo(m_grabs->window());
    }
    if (m_hidingSpace && !m_queue->isHeld())
        m_queue->hold(m_grabs->window());
    return true;
}

}  // namespace nulo
