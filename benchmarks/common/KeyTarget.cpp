#include "common/KeyTarget.h"

#include <poll.h>
#include <xcb/xtest.h>

#include <stdexcept>
#include <string>

namespace nulo {

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
        while (const auto event = owned(xcb_poll_for_event(server))) {
            const auto now = BenchClock::now();
            if ((event->response_type & 0x7F) == type &&
                reinterpret_cast<const xcb_key_press_event_t&>(*event).detail == keycode)
                return now;
        }
        pollfd events{xcb_get_file_descriptor(server), POLLIN, 0};
        ::poll(&events, 1, 100);
    }
    throw std::runtime_error("the key " + std::to_string(keycode) + " did not reach the window");
}

BenchClock::duration KeyTarget::roundTrip() {
    const auto start = BenchClock::now();
    hasFocus();
    return BenchClock::now() - start;
}

}  // namespace nulo
