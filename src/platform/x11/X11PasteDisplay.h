#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/Result.h"
#include "pasting/PasteChordTable.h"
#include "platform/x11/X11Keymap.h"

namespace nulo {

/// A connection to an X server over which keys are sent to the focused program. One thread. Every
/// call waits for the server's answer.
class X11PasteDisplay {
  public:
    /// `name` as in $DISPLAY.
    static Result<std::unique_ptr<X11PasteDisplay>> open(const std::string& name);
    ~X11PasteDisplay();
    X11PasteDisplay(const X11PasteDisplay&) = delete;
    X11PasteDisplay& operator=(const X11PasteDisplay&) = delete;

    /// The descriptor is readable when the server has sent something; call drain() then.
    int fileDescriptor() const;
    /// Discards what the server sent; false when the connection is lost.
    bool drain();

    /// Whether the user holds down a key that would join the injected ones.
    bool isModifierHeld();
    /// Lets go of every held modifier, then presses and releases the chord of the focused window.
    Outcome pressPasteChord();

    /// Whether a spare key carries a symbol that the layout lacks. Clients read the new key map
    /// when they get to it, some time after the keys were sent, so it is not returned at once.
    bool hasBorrowedKey() const { return m_borrowedKey != 0; }
    void returnBorrowedKey();

  private:
    struct WindowClass {
        std::string instance;
        std::string name;
    };
    struct Keymaps {
        X11Keymap user;      // of the keyboard that the user typed on last
        X11Keymap injected;  // which the server applies to injected keys
        std::uint8_t group = 0;
        std::uint8_t lockedGroup = 0;
    };

    explicit X11PasteDisplay(XcbConnection connection);
    Outcome prepare();
    void findInjectionDevice();
    Result<Keymaps> readKeymaps();
    std::vector<xcb_keycode_t> heldModifiers(const Keymaps& keymaps);
    Result<PasteChord> chordOfFocusedWindow();
    WindowClass classOf(xcb_window_t window);
    WindowClass classOfSelfOrParents(xcb_window_t window);
    WindowClass classUnderPointer();
    xcb_window_t activeWindow();
    Result<X11Keymap::Key> findOrBorrow(xcb_keysym_t symbol, const Keymaps& keymaps);
    void bind(xcb_keycode_t code, xcb_keysym_t symbol);
    Outcome inject(const std::vector<xcb_keycode_t>& released,
                   const std::vector<xcb_keycode_t>& chord);

    XcbConnection m_connection;
    xcb_window_t m_root = XCB_NONE;
    xcb_atom_t m_activeWindowAtom = XCB_NONE;
    xcb_xkb_device_spec_t m_injectionDevice = XCB_XKB_ID_USE_CORE_KBD;
    xcb_keycode_t m_borrowedKey = 0;
};

}  // namespace nulo
