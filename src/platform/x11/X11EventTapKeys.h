#pragma once

#include <xcb/xcb.h>

#include <array>
#include <bitset>
#include <optional>
#include <vector>

namespace nulo {

/// What the keyboard layout makes of the keys that matter to the tap. Groups count from 0, as
/// XKB's.
class X11EventTapKeys {
  public:
    using KeySet = std::bitset<256>;

    /// Nothing when the server did not answer. The XKB extension must be in use.
    static std::optional<X11EventTapKeys> read(xcb_connection_t* connection);

    /// Either Alt key. AltGr is none, also where it shares a key with Alt in another group.
    bool isOption(xcb_keycode_t key, int group) const;
    bool isSpace(xcb_keycode_t key, int group) const;
    bool isModifier(xcb_keycode_t key) const { return m_modifiers.test(key); }
    /// The keys that are Option in any group.
    const KeySet& optionKeys() const { return m_optionKeys; }

  private:
    xcb_keysym_t symbol(xcb_keycode_t key, int group) const;

    std::array<std::vector<xcb_keysym_t>, 256> m_symbols;  // level 0, by key and group
    KeySet m_modifiers;
    KeySet m_optionKeys;
};

}  // namespace nulo
