#pragma once

#include <xcb/xinput.h>

#include <map>
#include <optional>
#include <set>
#include <vector>

#include "pasting/InjectionGate.h"
#include "platform/x11/X11Keymap.h"

namespace nulo {

/// Knows which keys the user holds down, on which keyboard, and what they mean in the present
/// layout. One thread, that of the connection; the connection and the gate outlive it.
class X11KeyWatch {
  public:
    /// Nothing when the server did not answer.
    static std::optional<X11KeyWatch> begin(xcb_connection_t* connection,
                                            const InjectionGate& gate);

    /// Takes a raw key event of a keyboard that is no master. False when nothing follows from it:
    /// injected keys are not the user's, and a key that is down on two keyboards is pressed once
    /// and released once.
    bool note(const xcb_input_raw_key_press_event_t& raw, bool press);
    void groupChanged(int group) { m_group = group; }
    /// Reads the layout anew; tells whether other keys are Option now.
    bool layoutChanged();

    bool isDown(xcb_keycode_t key) const;
    bool isOptionDown() const;
    bool isSpaceDown() const { return !spacesDown().empty(); }
    std::vector<xcb_keycode_t> spacesDown() const;

    // What a key is in the present layout.
    bool isOption(xcb_keycode_t key) const { return m_keys.isOption(key, m_group); }
    bool isSpace(xcb_keycode_t key) const { return m_keys.isSpace(key, m_group); }
    bool isModifier(xcb_keycode_t key) const { return m_keys.isModifier(key); }
    /// Whether the key is Option in any group; the keys of which that is true.
    bool isOptionKey(xcb_keycode_t key) const { return m_keys.optionKeys().test(key); }
    std::vector<xcb_keycode_t> optionKeys() const;

  private:
    using Device = xcb_input_device_id_t;

    X11KeyWatch(xcb_connection_t* connection, const InjectionGate& gate)
        : m_connection(connection), m_gate(&gate) {}
    void readState();

    xcb_connection_t* m_connection;
    const InjectionGate* m_gate;
    X11Keymap m_keys;
    int m_group = 0;
    std::set<Device> m_injecting;
    /// The keys that are down, by keyboard; 0 has those that were down at the beginning.
    std::map<Device, X11Keymap::KeySet> m_down;
};

}  // namespace nulo
