#pragma once

#include <xcb/xcb.h>

#include <memory>
#include <set>

namespace nulo {

/// Presses keys of the X server named by $DISPLAY. Keys are X keycodes, the same on every layout.
class XTestKeyboard {
  public:
    enum Key : xcb_keycode_t {
        tab = 23,
        altLeft = 64,
        space = 65,
        shift = 50,
        a = 38,
        s = 39,
        f4 = 70,
        f12 = 96,
        altRight = 108
    };

    XTestKeyboard();

    /// Returns when the server has taken the event, and a moment has passed: a person's events
    /// never come at the same time.
    void press(Key key) { send(key, true); }
    void release(Key key) { send(key, false); }
    void tap(Key key);
    void button(bool down);
    /// The keycodes that the server believes to be down.
    std::set<int> keysDown();

  private:
    void send(Key key, bool down);
    void inject(std::uint8_t type, std::uint8_t detail);

    std::unique_ptr<xcb_connection_t, void (*)(xcb_connection_t*)> m_connection;
};

}  // namespace nulo
