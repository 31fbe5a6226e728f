#pragma once

#include "platform/x11/X11KeyWatch.h"
#include "platform/x11/Xcb.h"

namespace nulo {

/// The synchronous passive grabs of the Option keys, on the window that has the focus: those of all
/// the chord's modifiers, as any of them may be pressed last. One thread.
class X11OptionGrabs {
  public:
    /// `probe` is another connection, which asks as another program would. Both connections and the
    /// keys outlive it.
    X11OptionGrabs(xcb_connection_t* connection, xcb_connection_t* probe, xcb_window_t root,
                   const X11KeyWatch& keys)
        : m_connection(connection), m_probe(probe), m_root(root), m_keys(keys) {}

    xcb_window_t window() const { return m_window; }
    /// Puts the grabs where the focus is now.
    void followFocus();
    void drop();

    /// Where another program has taken Option, as "the focused window"; null when it gets here.
    const char* obstacle() const;
    /// A grab on the root goes before all others, so its program gets Option without a trace here.
    void lookForGrabOnDesktop();
    void optionHasArrived() { m_desktopIsTaken = false; }
    /// Asks the server whether the grabs are still there, and looks for others.
    bool areAlive();

  private:
    xcb_window_t focusWindow();
    void moveTo(xcb_window_t window);
    bool grab();

    xcb_connection_t* const m_connection;
    xcb_connection_t* const m_probe;
    const xcb_window_t m_root;
    const X11KeyWatch& m_keys;
    xcb_window_t m_window = XCB_NONE;
    bool m_windowIsTaken = false;   // its Option keys are another program's
    bool m_desktopIsTaken = false;  // the root window's are
};

}  // namespace nulo
