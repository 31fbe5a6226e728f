#pragma once

#include <xcb/xcb.h>

#include <chrono>
#include <memory>
#include <set>

namespace nulo {

/// Presses keys of the X server named by $DISPLAY. Keys are X keycodes, the same on every layout.
class XTestKeyboard {
  public:
    enum Key : xcb_keycode_t {
        escape = 9,
        tab = 23,
        altLeft = 64,
        space = 65,
        controlLeft = 37,
        shift = 50,
        v = 55,
        capsLock = 66,
        a = 38,
        s = 39,
        f4 = 70,
        enter = 36,
        f12 = 96,
        up = 111,
        altRight = 108,
        d = 40,
        superLeft = 133
    };

    /// What the keys come from, for the server: the device of injected keys, or Xvfb's own
    /// keyboard.
    enum class Device : std::uint8_t { injecting = 0, own = 7 };

    XTestKeyboard();

    /// How long to wait after each event: a person's never come at the same time. Window managers
    /// need a human pace.
    std::chrono::milliseconds pace{2};

    void press(Key key, Device device = Device::injecting) { send(key, true, device); }
    void release(Key key, Device device = Device::injecting) { send(key, false, device); }
    void tap(Key key, Device device = Device::injecting);
    void button(bool down);
    /// In pixels from the screen's upper left corner.
    void movePointer(int x, int y);
    /// Switches to a group of the layout, from 0.
    void lockGroup(int group);
    /// The keycodes that the server believes to be down.
    std::set<int> keysDown();

  private:
    void send(Key key, bool down, Device device = Device::injecting);
    void inject(std::uint8_t type, std::uint8_t detail, Device device = Device::injecting);

    std::uint8_t m_firstInputEvent;
    std::unique_ptr<xcb_connection_t, void (*)(xcb_connection_t*)> m_connection;
};

}  // namespace nulo
