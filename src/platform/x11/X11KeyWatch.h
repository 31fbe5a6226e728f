#pragma once

#include <xcb/xinput.h>

#include <map>
#include <optional>
#include <set>
#include <vector>

#include "hotkey/Chord.h"
#include "pasting/InjectionGate.h"
#include "platform/x11/X11Keymap.h"

namespace nulo {

/// Knows which keys the user holds down, on which keyboard, and what they mean in the present
/// layout. One thread, that of the connection; the connection and the gate outlive it.
class X11KeyWatch {
  public:
    /// Nothing when the server did not answer.
    static std::optional<X11KeyWatch> begin(xcb_connection_t* connection, const InjectionGate& gate,
                                            const Chord& chord);

    /// Takes a raw key event of a keyboard that is no master. False when nothing follows from it:
    /// injected keys are not the user's, and a key that is down on two keyboards is pressed once
    /// and released once.
    bool note(const xcb_input_raw_key_press_event_t& raw, bool press);
    void groupChanged(int group);
    /// Reads the layout anew; tells whether other keys are Option now.
    bool layoutChanged();
    /// Whether the layout has all keys of the chord.
    bool hasChord() const;

    bool isDown(xcb_keycode_t key) const;
    /// Whether each of the chord's modifiers is down.
    bool isOptionDown() const;
    bool isSpaceDown() const { return !spacesDown().empty(); }
    std::vector<xcb_keycode_t> spacesDown() const;

    // What a key is in the present layout.
    /// Which of the chord's modifiers. AltGr is none, also where it shares a key with Alt in
    /// another group.
    std::optional<Chord::Modifier> optionOf(xcb_keycode_t key) const;
    bool isOption(xcb_keycode_t key) const { return optionOf(key).has_value(); }
    bool isSpace(xcb_keycode_t key) const { return m_spaceKeys.test(key); }
    bool isModifier(xcb_keycode_t key) const { return m_keys.isModifier(key) && !isSpace(key); }
    /// Whether the key is one of the chord's modifiers in any group; the keys of which that is
    /// true.
    bool isOptionKey(xcb_keycode_t key) const { return m_optionKeys.test(key); }
    std::vector<xcb_keycode_t> optionKeys() const;

  private:
    using Device = xcb_input_device_id_t;

    X11KeyWatch(xcb_connection_t* connection, const InjectionGate& gate, const Chord& chord);
    void readState();
    void findChord();
    std::optional<Chord::Modifier> optionOf(xcb_keycode_t key, int group) const;

    xcb_connection_t* m_connection;
    const InjectionGate* m_gate;
    std::set<Chord::Modifier> m_modifiers;  // the chord's
    xcb_keysym_t m_space;
    X11Keymap m_keys;
    X11Keymap::KeySet m_optionKeys;  // in any group
    X11Keymap::KeySet m_spaceKeys;   // in the present one
    int m_group = 0;
    std::set<Device> m_injecting;
    /// The keys that are down, by keyboard; 0 has those that were down at the beginning.
    std::map<Device, X11Keymap::KeySet> m_down;
};

}  // namespace nulo
