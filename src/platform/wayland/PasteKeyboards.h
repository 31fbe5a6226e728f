#pragma once

#include <string>

#include "base/Result.h"
#include "platform/wayland/SeatKeymap.h"
#include "platform/wayland/Wayland.h"

namespace nulo {

class WaylandConnection;

/// A keyboard of Nulo's own, on compositors made with wlroots. It has its own modifiers: what the
/// user holds down does not mix with it. It stays once it was made: with the last keyboard's end a
/// compositor tells new programs no keymap. The connection's thread; gone before the connection.
class VirtualKeyboard {
  public:
    explicit VirtualKeyboard(WaylandConnection& connection);

    /// Makes the keyboard unless it is there, with the user's keymap. Waits ten seconds at most.
    Outcome prepare();
    /// Presses and releases Shift+Insert.
    void pressPasteChord();

  private:
    WaylandConnection& m_connection;
    SeatKeymap m_keymap;
    Wayland<zwp_virtual_keyboard_manager_v1> m_manager;
    Wayland<zwp_virtual_keyboard_v1> m_keyboard;
    std::string m_uploaded;
    PasteKeys m_keys;
};

/// The keys of KWin's own input, which it opens to programs whose installed desktop entry asks for
/// them. The connection's thread; gone before the connection.
class FakeInput {
  public:
    explicit FakeInput(WaylandConnection& connection);

    Outcome prepare();
    /// Presses and releases Shift+Insert.
    void pressPasteChord();

  private:
    SeatKeymap m_keymap;
    Wayland<org_kde_kwin_fake_input> m_input;
};

}  // namespace nulo
