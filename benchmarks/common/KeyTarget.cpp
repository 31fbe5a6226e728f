#include "common/KeyTarget.h"

#include <poll.h>
#include <xcb/xtest.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

#include "platform/x11/Xcb.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
KeyTarget::KeyTarget()
    : m_fingers(xcb_connect(nullptr, nullptr), xcb_disconnect),
      m_connection(xcb_connect(nullptr, nullptr), xcb_disconnect) {
    xcb_connection_t* connection = m_connection.get();
    if (xcb_connection_has_error(connection) || xcb_connection_has_error(m_fingers.get()))
        throw std::runtime_error("no X server to type to");
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    m_window = xcb_generate_id(connection);
    const std::uint32_t events = XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_KEY_RELEASE;
    xcb_create_window(connection, XCB_COPY_FROM_PARENT, m_window, root, 0, 0, 200, 100, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK,
                      &events);
    xcb_map_window(connection, m_window);
    const bool hasFocus = waitUntil([&] {
        xcb_set_input_focus(connection, XCB_INPUT_FOCUS_PARENT, m_window, XCB_CURRENT_TIME);
        const auto focus =
            owned(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
        return focus && focus->focus == m_window;
    });
    if (!hasFocus)
        throw std::runtime_error("the window did not get the focus");
}

BenchClock::time_point KeyTarget::send(int keycode, bool down) {
    xcb_test_fake_input(m_fingers.get(), down ? XCB_KEY_PRESS : XCB_KEY_RELEASE,
                        static_cast<std::uint8_t>(keycode), XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    const auto now = BenchClock::now();
    xcb_flush(m_fingers.get());
    return now;
}

BenchClock::time_point KeyTarget::waitFor(int type, int keycode) {
    const auto end = BenchClock::now() + std::chrono::seconds(5);
    while (BenchClock::now() < end) {
        while (const auto event = owned(xcb_poll_for_event(m_connection.get()))) {
            const auto now = BenchClock::now();
            if ((event->response_type & 0x7F) == type &&
                reinterpret_cast<const xcb_key_press_event_t&>(*event).detail == keycode)
                return now;
        }
        pollfd server{xcb_get_file_descriptor(m_connection.get()), POLLIN, 0};
        ::poll(&server, 1, 100);
    }
    throw std::runtime_error("the key " + std::to_string(keycode) + " did not reach the window");
}

bool KeyTarget::isGrabbed(int keycode) {
    xcb_connection_t* connection = m_connection.get();
    const auto key = static_cast<xcb_keycode_t>(keycode);
    const auto error = owned(xcb_request_check(
        connection, xcb_grab_key_checked(connection, 0, m_window, XCB_MOD_MASK_ANY, key,
                                         XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC)));
    if (!error)
        xcb_ungrab_key(connection, key, m_window, XCB_MOD_MASK_ANY);
    xcb_flush(connection);
    return error && error->error_code == XCB_ACCESS;
}

BenchClock::duration KeyTarget::roundTrip() {
    const auto start = BenchClock::now();
    owned(
        xcb_get_input_focus_reply(m_connection.get(), xcb_get_input_focus(m_connection.get()), {}));
    return BenchClock::now() - start;
}

}  // namespace nulo
