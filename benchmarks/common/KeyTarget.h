#pragma once

#include <xcb/xcb.h>

#include <chrono>
#include <memory>

#include "common/Report.h"

namespace nulo {

/// The user's fingers and the window they type into, on the server named by $DISPLAY. It waits for
/// what it sees in the server's own time, polling nothing.
class KeyTarget {
  public:
    /// Returns when the window has the focus; throws when it does not get it.
    KeyTarget();

    /// Sends the event to the server, without waiting; returns just before it leaves.
    BenchClock::time_point press(int keycode) { return send(keycode, true); }
    BenchClock::time_point release(int keycode) { return send(keycode, false); }
    /// When the window saw that press (release); earlier events are dropped. Throws after five
    /// seconds.
    BenchClock::time_point waitForPress(int keycode) { return waitFor(XCB_KEY_PRESS, keycode); }
    BenchClock::time_point waitForRelease(int keycode) { return waitFor(XCB_KEY_RELEASE, keycode); }
    /// Whether another program holds back that key of the window.
    bool isGrabbed(int keycode);
    /// The duration of one question to the server and its answer.
    BenchClock::duration roundTrip();

  private:
    using Connection = std::unique_ptr<xcb_connection_t, void (*)(xcb_connection_t*)>;

    BenchClock::time_point send(int keycode, bool down);
    BenchClock::time_point waitFor(int type, int keycode);

    Connection m_fingers;
    Connection m_connection;
    xcb_window_t m_window;
};

}  // namespace nulo
