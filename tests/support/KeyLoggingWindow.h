#pragma once

#include <chrono>
#include <string>

#include "platform/x11/Xcb.h"

namespace nulo {

/// An ordinary program's window on a connection of its own, which notes the keys it gets. Without a
/// thread: it reads what has arrived when it is asked.
class KeyLoggingWindow {
  public:
    enum class Input { core, xi2 };  // what it asks the server for; GTK 3 and later want XI2

    /// Returns when the window has the focus.
    explicit KeyLoggingWindow(Input input = Input::core);

    /// Everything so far: "+64" for a press, "-64" for a release, by keycode and separated by
    /// spaces; "=64" is an auto-repeat.
    std::string keys();
    /// What came since the last call, up to a press and release of `fence`, which it waits for.
    std::string keysUntil(int fence);
    /// Whether a window manager asked it to close.
    bool wasAskedToClose();
    bool hasFocus();
    void takeFocus();
    /// Whether the window manager takes it for the one in use.
    bool isActive();
    /// Whether another program holds this key of this window.
    bool isGrabbed(int keycode);
    enum class Where { window, desktop };
    /// Takes the key of this window, as its own program does, or of the whole desktop, as a hot-key
    /// tool does; or gives it back.
    void grabKey(int keycode, Where where, bool grab = true);
    /// Takes the whole keyboard, as a screen lock does, or gives it back; false when it cannot.
    bool grabKeyboard(bool grab);
    /// Whether another program has taken the whole keyboard; takes nothing.
    bool isKeyboardTaken();
    /// Has the server refuse keys that are not held for so long; 0 ends that.
    void slowKeys(std::chrono::milliseconds delay);
    xcb_window_t window() const { return m_window; }

  private:
    void note(unsigned key, bool press);
    xcb_atom_t atom(const std::string& name);
    xcb_window_t root() const;

    XcbConnection m_connection;
    xcb_window_t m_window;
    std::string m_keys;
    bool m_down[256] = {};
    bool m_askedToClose = false;
};

}  // namespace nulo
