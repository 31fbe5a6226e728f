#pragma once

#include <string_view>

#include "platform/x11/Xcb.h"

namespace nulo {

/// A program's window on a connection of its own to the server that $DISPLAY names, for keys to be
/// typed into.
class KeyWindow {
  public:
    /// Asks for these events. Returns when it has the focus; throws when it does not get it.
    explicit KeyWindow(std::uint32_t events = XCB_EVENT_MASK_KEY_PRESS |
                                              XCB_EVENT_MASK_KEY_RELEASE);

    bool hasFocus();
    /// Throws when it does not get it.
    void takeFocus();
    /// Whether another program holds this key of this window.
    bool isGrabbed(xcb_keycode_t key);

  private:
    static XcbConnection connected();
    xcb_atom_t atom(std::string_view name);

    const XcbConnection m_connection = connected();

  public:
    xcb_connection_t* const server = m_connection.get();
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(server)).data->root;
    const xcb_window_t window = xcb_generate_id(server);
};

}  // namespace nulo
