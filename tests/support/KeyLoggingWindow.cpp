#include "support/KeyLoggingWindow.h"

#include <xcb/xinput.h>

#include <stdexcept>
#include <utility>

#include "rig/process/WaitUntil.h"

namespace nulo {

KeyLoggingWindow::KeyLoggingWindow(Input input) : m_connection(xcb_connect(nullptr, nullptr)) {
    xcb_connection_t* const server = m_connection.get();
    if (xcb_connection_has_error(server))
        throw std::runtime_error("no X server for the window");
    NULO_XCB(xcb_xkb_use_extension, server, 1, 0);
    xcb_xkb_per_client_flags(server, XCB_XKB_ID_USE_CORE_KBD,
                             XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT,
                             XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT, 0, 0, 0);
    m_window = xcb_generate_id(server);
    const std::uint32_t events =
        input == Input::core ? XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_KEY_RELEASE : 0;
    xcb_create_window(server, XCB_COPY_FROM_PARENT, m_window, root(), 0, 0, 200, 100, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK,
                      &events);
    if (input == Input::xi2) {
        const struct {
            xcb_input_event_mask_t header{XCB_INPUT_DEVICE_ALL_MASTER, 1};
            std::uint32_t bits =
                XCB_INPUT_XI_EVENT_MASK_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_KEY_RELEASE;
        } mask;
        NULO_XCB(xcb_input_xi_query_version, server, 2, 2);
        xcb_input_xi_select_events(server, m_window, 1, &mask.header);
    }
    const xcb_atom_t deleteWindow = atom("WM_DELETE_WINDOW");
    xcb_change_property(server, XCB_PROP_MODE_REPLACE, m_window, atom("WM_PROTOCOLS"),
                        XCB_ATOM_ATOM, 32, 1, &deleteWindow);
    takeFocus();
}

xcb_window_t KeyLoggingWindow::root() const {
    return xcb_setup_roots_iterator(xcb_get_setup(m_connection.get())).data->root;
}

xcb_atom_t KeyLoggingWindow::atom(const std::string& name) {
    const auto reply = NULO_XCB(xcb_intern_atom, m_connection.get(), 0,
                                static_cast<std::uint16_t>(name.size()), name.c_str());
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_NONE);
}

void KeyLoggingWindow::takeFocus() {
    for (int tries = 0; tries < 20; ++tries) {
        // A window manager that has only just begun may miss a request to map.
        xcb_map_window(m_connection.get(), m_window);
        xcb_set_input_focus(m_connection.get(), XCB_INPUT_FOCUS_PARENT, m_window, XCB_CURRENT_TIME);
        if (waitUntil([this] { return hasFocus(); }, std::chrono::milliseconds(500)))
            return;
    }
    throw std::runtime_error("the window did not get the focus");
}

bool KeyLoggingWindow::hasFocus() {
    const auto reply = NULO_XCB(xcb_get_input_focus, m_connection.get());
    return reply && reply->focus == m_window;
}

bool KeyLoggingWindow::isActive() {
    const auto reply = NULO_XCB(xcb_get_property, m_connection.get(), 0, root(),
                                atom("_NET_ACTIVE_WINDOW"), XCB_ATOM_WINDOW, 0, 1);
    return reply && xcb_get_property_value_length(reply.get()) == 4 &&
           *static_cast<xcb_window_t*>(xcb_get_property_value(reply.get())) == m_window;
}

bool KeyLoggingWindow::isGrabbed(int keycode) {
    xcb_connection_t* const server = m_connection.get();
    const auto key = static_cast<xcb_keycode_t>(keycode);
    xcb_grab_server(server);  // so that nobody finds the key grabbed by the question
    const auto error = owned(
        xcb_request_check(server, xcb_grab_key_checked(server, 0, m_window, XCB_MOD_MASK_ANY, key,
                                                       XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC)));
    if (!error)
        xcb_ungrab_key(server, key, m_window, XCB_MOD_MASK_ANY);
    xcb_ungrab_server(server);
    xcb_flush(server);
    return error && error->error_code == XCB_ACCESS;
}

void KeyLoggingWindow::grabKey(int keycode, Where where, bool grab) {
    const auto key = static_cast<xcb_keycode_t>(keycode);
    const xcb_window_t window = where == Where::desktop ? root() : m_window;
    if (grab)
        xcb_grab_key(m_connection.get(), 0, window, 0, key, XCB_GRAB_MODE_ASYNC,
                     XCB_GRAB_MODE_ASYNC);
    else
        xcb_ungrab_key(m_connection.get(), key, window, 0);
    hasFocus();
}

bool KeyLoggingWindow::grabKeyboard(bool grab) {
    xcb_ungrab_keyboard(m_connection.get(), XCB_CURRENT_TIME);
    if (!grab)
        return hasFocus();
    const auto reply = NULO_XCB(xcb_grab_keyboard, m_connection.get(), 0, m_window,
                                XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    return reply && reply->status == XCB_GRAB_STATUS_SUCCESS;
}

bool KeyLoggingWindow::isKeyboardTaken() {
    // The server grants no grab on a window that is not on the screen, and looks for others first.
    const xcb_window_t hidden = xcb_generate_id(m_connection.get());
    xcb_create_window(m_connection.get(), 0, hidden, root(), 0, 0, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
    const auto reply = NULO_XCB(xcb_grab_keyboard, m_connection.get(), 0, hidden, XCB_CURRENT_TIME,
                                XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    xcb_destroy_window(m_connection.get(), hidden);
    return reply && reply->status == XCB_GRAB_STATUS_ALREADY_GRABBED;
}

void KeyLoggingWindow::slowKeys(std::chrono::milliseconds delay) {
    constexpr std::uint32_t slowKeys = XCB_XKB_BOOL_CTRL_SLOW_KEYS;
    constexpr std::uint32_t enabled = XCB_XKB_CONTROL_CONTROLS_ENABLED;
    const bool on = delay.count() > 0;
    const std::uint8_t repeat[32] = {};
    xcb_xkb_set_controls(m_connection.get(), XCB_XKB_ID_USE_CORE_KBD, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                         0, slowKeys, on ? slowKeys : 0, on ? slowKeys | enabled : enabled, 0, 0,
                         static_cast<std::uint16_t>(delay.count()), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                         repeat);
    hasFocus();
}

std::string KeyLoggingWindow::keys() {
    hasFocus();  // a round trip brings all that is on its way
    while (const XcbEvent event{xcb_poll_for_event(m_connection.get())}) {
        const auto& extended = reinterpret_cast<const xcb_input_key_press_event_t&>(*event);
        const int type = typeOf(*event);
        if (type == XCB_KEY_PRESS || type == XCB_KEY_RELEASE)
            note(asKey(*event).detail, type == XCB_KEY_PRESS);
        if (type == XCB_GE_GENERIC)
            note(extended.detail & 0xFF, extended.event_type == XCB_INPUT_KEY_PRESS);
        if (type == XCB_CLIENT_MESSAGE)
            m_askedToClose = true;
    }
    return m_keys;
}

std::string KeyLoggingWindow::keysUntil(int fence) {
    const std::string press = "+" + std::to_string(fence) + " ";
    const std::string release = "-" + std::to_string(fence) + " ";
    if (!waitUntil([&] { return keys().find(release) != std::string::npos; }))
        return std::exchange(m_keys, "") + "(no fence)";
    const std::string keys = m_keys.substr(0, m_keys.find(press));
    m_keys.erase(0, m_keys.find(release) + release.size());
    return keys.substr(0, keys.find_last_not_of(' ') + 1);
}

bool KeyLoggingWindow::wasAskedToClose() {
    keys();
    return m_askedToClose;
}

void KeyLoggingWindow::note(unsigned key, bool press) {
    const bool repeats = press && std::exchange(m_down[key], press);
    m_down[key] = press;
    m_keys += (repeats ? "=" : press ? "+" : "-") + std::to_string(key) + " ";
}

}  // namespace nulo
