#pragma once

#include "common/Report.h"
#include "rig/display/KeyWindow.h"

namespace nulo {

/// The user's fingers and the window they type into, on the server named by $DISPLAY. It waits for
/// what it sees in the server's own time, polling nothing.
class KeyTarget : public KeyWindow {
  public:
    /// Sends the event to the server, without waiting; returns just before it leaves.
    BenchClock::time_point press(int keycode) { return send(keycode, true); }
    BenchClock::time_point release(int keycode) { return send(keycode, false); }
    /// When the window saw that press (release); earlier events are dropped. Throws after five
    /// seconds.
    BenchClock::time_point waitForPress(int keycode) { return waitFor(XCB_KEY_PRESS, keycode); }
    BenchClock::time_point waitForRelease(int keycode) { return waitFor(XCB_KEY_RELEASE, keycode); }
    /// The duration of one question to the server and its answer.
    BenchClock::duration roundTrip();

  private:
    BenchClock::time_point send(int keycode, bool down);
    BenchClock::time_point waitFor(int type, int keycode);

    const XcbConnection m_fingers{xcb_connect(nullptr, nullptr)};
};

}  // namespace nulo
