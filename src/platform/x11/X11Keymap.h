#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/x11/Xcb.h"

namespace nulo {

/// What is on the keys of one keyboard of an X server, as it was when it was read. Groups count
/// from 0, as XKB's; a key that has fewer groups than the layout repeats its own. One thread.
class X11Keymap {
  public:
    using KeySet = std::bitset<256>;
    struct Key {
        xcb_keycode_t code;
        std::uint8_t group;  // the group in which the key has the symbol
    };

    /// Nothing when the server did not answer or has no such keyboard. The XKB extension must be in
    /// use on the connection.
    static std::optional<X11Keymap> read(xcb_connection_t* connection,
                                         xcb_xkb_device_spec_t keyboard = XCB_XKB_ID_USE_CORE_KBD);

    /// What the key gives in `group` when pressed alone; XKB_KEY_NoSymbol when it gives nothing.
    xcb_keysym_t symbol(xcb_keycode_t key, int group) const {
        return symbolOf(m_symbols[key], group);
    }
    /// The keys that give `symbol` in `group`, alone or with Shift, as digits do on some layouts;
    /// those of another group where this one, of another script, has none.
    KeySet keysFor(xcb_keysym_t symbol, int group) const;
    /// Whether the key is a modifier in any group; lock keys and group switches are.
    bool isModifier(xcb_keycode_t key) const { return m_modifiers.test(key); }
    /// Whether the key modifies others only while it is held down.
    bool isHeldModifier(xcb_keycode_t key) const { return m_heldModifiers.test(key); }
    bool isUnused(xcb_keycode_t key) const { return m_symbols[key].empty(); }
    /// The key that gives `symbol` when pressed alone: in `group` if there is one, else in any.
    std::optional<Key> keyFor(xcb_keysym_t symbol, std::uint8_t group) const;

  private:
    using Symbols = std::vector<xcb_keysym_t>;  // by group

    void add(xcb_keycode_t key, xcb_keysym_t symbol, xcb_keysym_t withShift);
    static xcb_keysym_t symbolOf(const Symbols& symbols, int group);

    std::array<Symbols, 256> m_symbols;  // by key
    std::array<Symbols, 256> m_symbolsWithShift;
    KeySet m_modifiers;
    KeySet m_heldModifiers;
};

/// A keyboard that types what programs send by XTEST. Every master keyboard has one.
struct X11InjectingKeyboard {
    xcb_xkb_device_spec_t device;
    xcb_xkb_device_spec_t master;
};

/// Empty when the server did not answer. The input extension must be in use on the connection.
std::vector<X11InjectingKeyboard> injectingKeyboards(xcb_connection_t* connection);

}  // namespace nulo
