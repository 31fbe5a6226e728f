#pragma once

#include "platform/x11/Xcb.h"

namespace nulo {

/// What the key tap must know of the window manager. One thread, that of the connection; the
/// connection outlives it.
class X11WindowManager {
  public:
    X11WindowManager(xcb_connection_t* connection, xcb_window_t root);

    /// Call it for every change of a property of the root window.
    void propertyChanged(xcb_atom_t property);
    /// Call it after the end of a keyboard grab on the window that has the focus. The server
    /// announces that by FocusOut and FocusIn, both of mode Ungrab. KWin takes the first for a loss
    /// of the focus and ignores the second, so it is told once more.
    void grabHasEnded(xcb_window_t window);

  private:
    void identify();

    xcb_connection_t* const m_connection;
    const xcb_window_t m_root;
    const xcb_atom_t m_check;
    const xcb_atom_t m_name;
    bool m_isKWin = false;
};

}  // namespace nulo
