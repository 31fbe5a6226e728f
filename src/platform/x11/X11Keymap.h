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

    /// Either Alt key. AltGr is none, also where it shares a key with Alt in another group.
    bool isOption(xcb_keycode_t key, int group) const;
    bool isSpace(xcb_keycode_t key, int group) const;
    /// The keys that are Option in any group.
    const KeySet& optionKeys() const { return m_optionKeys; }
    /// Whether the key is a modifier in any group; lock keys and group switches are.
    bool isModifier(xcb_keycode_t key) const { return m_modifiers.test(key); }
    /// Whether the key modifies others only while it is held down.
    bool isHeldModifier(xcb_keycode_t key) const { return m_heldModifiers.test(key); }
    bool isUnused(xcb_keycode_t key) const { return m_symbols[key].empty(); }
    /// The key that gives `symbol` when pressed alone: in `group` if there is one, else in any.
    std::optional<Key> keyFor(xcb_keysym_t symbol, std::uint8_t group) const;

  private:
    void add(xcb_keycode_t key, xcb_keysym_t symbol);
    xcb_keysym_t symbol(xcb_keycode_t key, int group) const;

    std::array<std::vector<xcb_keysym_t>, 256> m_symbols;  // level 0, by key and group
    KeySet m_optionKeys;
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
