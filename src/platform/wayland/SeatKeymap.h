#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/wayland/Wayland.h"

namespace nulo {

class WaylandConnection;

/// The keymap of a seat's keyboard, as the compositor tells it to every client, and where in it the
/// paste shortcut is. The connection's thread; gone before the connection.
class SeatKeymap {
  public:
    explicit SeatKeymap(WaylandConnection& connection);
    SeatKeymap(const SeatKeymap&) = delete;
    SeatKeymap& operator=(const SeatKeymap&) = delete;

    /// Asks for the keymap as soon as the seat has a keyboard; to be called before each use.
    void update();
    /// In XKB's text format, with the paste shortcut; that of the system's default layout as long
    /// as the seat has none such.
    const std::string& text() const { return m_text; }

  private:
    void take(int descriptor, std::uint32_t size);

    WaylandConnection& m_connection;
    Wayland<wl_keyboard> m_keyboard;
    std::string m_text;
};

/// Shift+Insert in codes of the kernel's, and the modifier's bit in the keymap.
struct PasteKeys {
    std::uint32_t shift = 42;
    std::uint32_t insert = 110;
    std::uint32_t shiftMask = 1;
};

/// Nothing for a keymap that lacks one of them, or is none.
std::optional<PasteKeys> pasteKeysOf(const std::string& keymap);

}  // namespace nulo
