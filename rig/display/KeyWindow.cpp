#include "rig/display/KeyWindow.h"

#include <chrono>
#include <stdexcept>

#include "rig/process/WaitUntil.h"

namespace nulo {

XcbConnection KeyWindow::connected() {
    XcbConnection connection(xcb_connect(nullptr, nullptr));
    if (xcb_connection_has_error(connection.get()))
        throw std::runtime_error("no X server for the window");
    return connection;
}

KeyWindow::KeyWindow(std::uint32_t events) {
    xcb_create_window(server, XCB_COPY_FROM_PARENT, window, root, 0, 0, 200, 100, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK,
                      &events);
    const xcb_atom_t deleteWindow = atom("WM_DELETE_WINDOW");
    xcb_change_property(server, XCB_PROP_MODE_REPLACE, window, atom("WM_PROTOCOLS"), XCB_ATOM_ATOM,
                        32, 1, &deleteWindow);
    takeFocus();
}

xcb_atom_t KeyWindow::atom(std::string_view name) {
    const auto reply =
        NULO_XCB(xcb_intern_atom, server, 0, static_cast<std::uint16_t>(name.size()), name.data());
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_NONE);
}

bool KeyWindow::hasFocus() {
    const auto reply = NULO_XCB(xcb_get_input_focus, server);
    return reply && reply->focus == window;
}

void KeyWindow::takeFocus() {
    for (int tries = 0; tries < 20; ++tries) {
        // A window manager that has only just begun may miss a request to map.
        xcb_map_window(server, window);
        xcb_set_input_focus(server, XCB_INPUT_FOCUS_PARENT, window, XCB_CURRENT_TIME);
        if (waitUntil([this] { return hasFocus(); }, std::chrono::milliseconds(500)))
            return;
    }
    throw std::runtime_error("the window did not get the focus");
}

bool KeyWindow::isGrabbed(xcb_keycode_t key) {
    xcb_grab_server(server);  // so that nobody finds the key grabbed by the question
    const auto error = owned(
        xcb_request_check(server, xcb_grab_key_checked(server, 0, window, XCB_MOD_MASK_ANY, key,
                                                       XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC)));
    if (!error)
        xcb_ungrab_key(server, key, window, XCB_MOD_MASK_ANY);
    xcb_ungrab_server(server);
    xcb_flush(server);
    return error && error->error_code == XCB_ACCESS;
}

}  // namespace nulo
