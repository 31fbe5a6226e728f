#include "platform/x11/X11WindowManager.h"

#include <string_view>

namespace nulo {

X11WindowManager::X11WindowManager(xcb_connection_t* connection, xcb_window_t root)
    : m_connection(connection),
      m_root(root),
      m_check(atomOf(connection, "_NET_SUPPORTING_WM_CHECK")),
      m_name(atomOf(connection, "_NET_WM_NAME")) {
    identify();
}

void X11WindowManager::propertyChanged(xcb_atom_t property) {
    if (property == m_check)
        identify();
}

void X11WindowManager::identify() {
    m_isKWin = false;
    const auto check =
        NULO_XCB(xcb_get_property, m_connection, 0, m_root, m_check, XCB_ATOM_WINDOW, 0, 1);
    if (!check || check->format != 32 || xcb_get_property_value_length(check.get()) != 4)
        return;
    const auto window = *static_cast<const xcb_window_t*>(xcb_get_property_value(check.get()));
    const auto name =
        NULO_XCB(xcb_get_property, m_connection, 0, window, m_name, XCB_ATOM_ANY, 0, 16);
    m_isKWin = name && name->format == 8 &&
               std::string_view(
                   static_cast<const char*>(xcb_get_property_value(name.get())),
                   static_cast<std::size_t>(xcb_get_property_value_length(name.get()))) == "KWin";
}

void X11WindowManager::grabHasEnded(xcb_window_t window) {
    if (!m_isKWin || window == m_root)
        return;
    xcb_focus_in_event_t event{};
    event.response_type = XCB_FOCUS_IN;
    event.detail = XCB_NOTIFY_DETAIL_NONLINEAR;
    event.event = window;
    event.mode = XCB_NOTIFY_MODE_NORMAL;
    xcb_send_event(m_connection, 0, window, XCB_EVENT_MASK_FOCUS_CHANGE,
                   reinterpret_cast<const char*>(&event));
}

}  // namespace nulo
