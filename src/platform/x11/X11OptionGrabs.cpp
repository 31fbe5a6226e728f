#include "platform/x11/X11OptionGrabs.h"

#include <vector>

namespace nulo {
namespace {

constexpr std::uint32_t focusEvents = XCB_EVENT_MASK_FOCUS_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY;

}  // namespace

void X11OptionGrabs::followFocus() {
    // The focus may move on before events are selected on its new window.
    xcb_window_t window = focusWindow();
    for (int tries = 0; window != m_window && tries < 5; ++tries) {
        moveTo(window);
        window = focusWindow();
    }
}

xcb_window_t X11OptionGrabs::focusWindow() {
    const auto reply = NULO_XCB(xcb_get_input_focus, m_connection);
    if (!reply || reply->focus == XCB_NONE || reply->focus == XCB_INPUT_FOCUS_POINTER_ROOT)
        return m_root;
    return reply->focus;
}

void X11OptionGrabs::moveTo(xcb_window_t window) {
    drop();
    m_window = window;
    if (window != m_root)
        xcb_change_window_attributes(m_connection, window, XCB_CW_EVENT_MASK, &focusEvents);
    m_windowIsTaken = !grab();
}

bool X11OptionGrabs::grab() {
    std::vector<xcb_void_cookie_t> requests;
    for (const auto key : m_keys.optionKeys())
        requests.push_back(xcb_grab_key_checked(m_connection, 0, m_window, XCB_MOD_MASK_ANY, key,
                                                XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_SYNC));
    bool granted = true;
    for (const auto request : requests) {
        const auto error = owned(xcb_request_check(m_connection, request));
        granted = granted && (!error || error->error_code != XCB_ACCESS);
    }
    return granted;
}

void X11OptionGrabs::drop() {
    if (m_window == XCB_NONE)
        return;
    constexpr std::uint32_t nothing = XCB_EVENT_MASK_NO_EVENT;
    xcb_ungrab_key(m_connection, XCB_GRAB_ANY, m_window, XCB_MOD_MASK_ANY);
    if (m_window != m_root)
        xcb_change_window_attributes(m_connection, m_window, XCB_CW_EVENT_MASK, &nothing);
    m_window = XCB_NONE;
}

const char* X11OptionGrabs::obstacle() const {
    return m_windowIsTaken    ? "the focused window"
           : m_desktopIsTaken ? "the whole desktop"
                              : nullptr;
}

void X11OptionGrabs::lookForGrabOnDesktop() {
    m_desktopIsTaken = false;
    if (m_window == m_root)
        return;
    for (const auto key : m_keys.optionKeys()) {
        const auto grab = xcb_grab_key_checked(m_probe, 0, m_root, 0, key, XCB_GRAB_MODE_ASYNC,
                                               XCB_GRAB_MODE_ASYNC);
        xcb_ungrab_key(m_probe, key, m_root, 0);
        const auto error = owned(xcb_request_check(m_probe, grab));
        m_desktopIsTaken = m_desktopIsTaken || (error && error->error_code == XCB_ACCESS);
    }
}

bool X11OptionGrabs::areAlive() {
    lookForGrabOnDesktop();
    while (XcbEvent(xcb_poll_for_event(m_probe))) {  // nothing else reads them
    }
    if (m_keys.optionKeys().empty())
        return true;
    const auto key = m_keys.optionKeys().front();
    const auto error = owned(
        xcb_request_check(m_probe, xcb_grab_key_checked(m_probe, 0, m_window, XCB_MOD_MASK_ANY, key,
                                                        XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC)));
    if (error)
        return true;
    xcb_ungrab_key(m_probe, key, m_window, XCB_MOD_MASK_ANY);
    xcb_flush(m_probe);
    return false;
}

}  // namespace nulo
