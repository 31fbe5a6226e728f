#pragma once

#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon.h>

#include <cstdint>
#include <memory>
#include <optional>

namespace nulo {

/// The key map of one keyboard of an X server, as it was when it was read. One thread.
class X11PasteKeymap {
  public:
    struct Key {
        xcb_keycode_t code;
        std::uint8_t group;  // the group in which the key has the symbol
    };

    /// `device` is an XKB device id. Nothing when the server has no such keyboard.
    static std::optional<X11PasteKeymap> read(xcb_connection_t* connection, xkb_context* context,
                                              std::int32_t device);

    /// The key that gives `symbol` when pressed alone: in `group` if there is one, else in any.
    std::optional<Key> keyFor(xkb_keysym_t symbol, std::uint8_t group) const;
    /// Whether the key modifies others while it is held down; lock keys do not.
    bool isHeldModifier(xcb_keycode_t code) const;
    /// Whether no symbol is on the key.
    bool isUnused(xcb_keycode_t code) const;

  private:
    struct Unref {
        void operator()(xkb_keymap* keymap) const { xkb_keymap_unref(keymap); }
    };
    explicit X11PasteKeymap(xkb_keymap* keymap) : m_keymap(keymap) {}

    std::unique_ptr<xkb_keymap, Unref> m_keymap;
};

}  // namespace nulo
