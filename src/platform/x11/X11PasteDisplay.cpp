#include "platform/x11/X11PasteDisplay.h"

#include <xcb/xinput.h>
#include <xcb/xtest.h>
#include <xkbcommon/xkbcommon-keysyms.h>

#include <string_view>
#include <utility>

namespace nulo {

Result<std::unique_ptr<X11PasteDisplay>> X11PasteDisplay::open(const std::string& name) {
    if (name.empty())
        return Error{"there is no X server, $DISPLAY is not set"};
    std::unique_ptr<X11PasteDisplay> display(new X11PasteDisplay(connectToDisplay(name.c_str())));
    if (const Outcome outcome = display->prepare(); !outcome)
        return Error{outcome.error().description + " (display " + name + ")"};
    return display;
}

X11PasteDisplay::X11PasteDisplay(XcbConnection connection) : m_connection(std::move(connection)) {}

X11PasteDisplay::~X11PasteDisplay() {
    returnBorrowedKey();
}

Outcome X11PasteDisplay::prepare() {
    if (xcb_connection_has_error(m_connection.get()))
        return Error{"the X server cannot be reached"};
    const auto* setup = xcb_get_setup(m_connection.get());
    m_root = xcb_setup_roots_iterator(setup).data->root;

    const auto* test = xcb_get_extension_data(m_connection.get(), &xcb_test_id);
    if (!test || !test->present)
        return Error{"the X server does not let programs send keys (no XTEST extension)"};
    const auto* keyboard = xcb_get_extension_data(m_connection.get(), &xcb_xkb_id);
    if (!keyboard || !keyboard->present ||
        !NULO_XCB(xcb_xkb_use_extension, m_connection.get(), 1, 0))
        return Error{"the X server cannot describe its keyboard (no XKB extension)"};
    findInjectionDevice();
    m_activeWindowAtom = atomOf(m_connection.get(), "_NET_ACTIVE_WINDOW");
    return Success{};
}

/// Injected keys come from a keyboard device of their own, whose key map can differ from the
/// user's: a layout set in the server's configuration belongs to the real keyboards alone.
void X11PasteDisplay::findInjectionDevice() {
    const auto* extension = xcb_get_extension_data(m_connection.get(), &xcb_input_id);
    if (!extension || !extension->present ||
        !NULO_XCB(xcb_input_xi_query_version, m_connection.get(), 2, 0))
        return;
    const auto state = NULO_XCB(xcb_xkb_get_state, m_connection.get(), XCB_XKB_ID_USE_CORE_KBD);
    for (const X11InjectingKeyboard& keyboard : injectingKeyboards(m_connection.get()))
        if (state && keyboard.master == state->deviceID)
            m_injectionDevice = keyboard.device;
}

int X11PasteDisplay::fileDescriptor() const {
    return xcb_get_file_descriptor(m_connection.get());
}

bool X11PasteDisplay::drain() {
    while (const auto event = owned(xcb_poll_for_event(m_connection.get()))) {
    }
    return !xcb_connection_has_error(m_connection.get());
}

Result<X11PasteDisplay::Keymaps> X11PasteDisplay::readKeymaps() {
    auto user = X11Keymap::read(m_connection.get());
    auto injected = X11Keymap::read(m_connection.get(), m_injectionDevice);
    const auto state = NULO_XCB(xcb_xkb_get_state, m_connection.get(), XCB_XKB_ID_USE_CORE_KBD);
    if (!user || !injected || !state)
        return Error{"the keyboard's layout cannot be read from the X server"};
    return Keymaps{std::move(*user), std::move(*injected), state->group, state->lockedGroup};
}

std::vector<xcb_keycode_t> X11PasteDisplay::heldModifiers(const Keymaps& keymaps) {
    std::vector<xcb_keycode_t> held;
    const auto down = NULO_XCB(xcb_query_keymap, m_connection.get());
    for (unsigned code = 0; down && code < 256; ++code) {
        const auto key = static_cast<xcb_keycode_t>(code);
        if ((down->keys[code / 8] >> (code % 8) & 1) &&
            (keymaps.user.isHeldModifier(key) || keymaps.injected.isHeldModifier(key)))
            held.push_back(key);
    }
    return held;
}

bool X11PasteDisplay::isModifierHeld() {
    const auto down = NULO_XCB(xcb_query_keymap, m_connection.get());
    bool anyDown = false;
    for (unsigned byte = 0; down && byte < sizeof down->keys; ++byte)
        anyDown = anyDown || down->keys[byte] != 0;
    if (!anyDown)
        return false;
    const auto keymaps = readKeymaps();
    return keymaps && !heldModifiers(keymaps.value()).empty();
}

X11PasteDisplay::WindowClass X11PasteDisplay::classOf(xcb_window_t window) {
    const auto reply = NULO_XCB(xcb_get_property, m_connection.get(), 0, window, XCB_ATOM_WM_CLASS,
                                XCB_ATOM_STRING, 0, 256);
    if (!reply || reply->format != 8)
        return {};
    // Two strings, each ended by a zero byte.
    const std::string_view both(
        static_cast<const char*>(xcb_get_property_value(reply.get())),
        static_cast<std::size_t>(xcb_get_property_value_length(reply.get())));
    const std::size_t end = both.find('\0');
    if (end == std::string_view::npos)
        return {std::string(both), {}};
    const std::string_view rest = both.substr(end + 1);
    return {std::string(both.substr(0, end)), std::string(rest.substr(0, rest.find('\0')))};
}

X11PasteDisplay::WindowClass X11PasteDisplay::classOfSelfOrParents(xcb_window_t window) {
    while (window != XCB_NONE && window != m_root) {
        WindowClass found = classOf(window);
        if (!found.instance.empty() || !found.name.empty())
            return found;
        const auto tree = NULO_XCB(xcb_query_tree, m_connection.get(), window);
        window = tree ? tree->parent : XCB_NONE;
    }
    return {};
}

X11PasteDisplay::WindowClass X11PasteDisplay::classUnderPointer() {
    xcb_window_t window = m_root;
    WindowClass found;
    while (found.instance.empty() && found.name.empty()) {
        const auto pointer = NULO_XCB(xcb_query_pointer, m_connection.get(), window);
        if (!pointer || pointer->child == XCB_NONE)
            break;
        window = pointer->child;
        found = classOf(window);
    }
    return found;
}

xcb_window_t X11PasteDisplay::activeWindow() {
    const auto reply = NULO_XCB(xcb_get_property, m_connection.get(), 0, m_root, m_activeWindowAtom,
                                XCB_ATOM_WINDOW, 0, 1);
    if (!reply || reply->format != 32 || xcb_get_property_value_length(reply.get()) != 4)
        return XCB_NONE;
    return *static_cast<const xcb_window_t*>(xcb_get_property_value(reply.get()));
}

Result<PasteChord> X11PasteDisplay::chordOfFocusedWindow() {
    const auto focus = NULO_XCB(xcb_get_input_focus, m_connection.get());
    if (!focus)
        return Error{"the X server does not answer"};
    if (focus->focus == XCB_NONE)
        return Error{"no window has the keyboard focus"};
    WindowClass found = focus->focus == XCB_INPUT_FOCUS_POINTER_ROOT
                            ? classUnderPointer()
                            : classOfSelfOrParents(focus->focus);
    // Some programs take the keys in a window without a name, outside their main one.
    if (found.instance.empty() && found.name.empty())
        found = classOfSelfOrParents(activeWindow());
    return pasteChordFor(found.instance, found.name);
}

void X11PasteDisplay::bind(xcb_keycode_t code, xcb_keysym_t symbol) {
    const xcb_keysym_t symbols[] = {symbol, symbol};
    xcb_change_keyboard_mapping(m_connection.get(), 1, code, 2, symbols);
}

Result<X11Keymap::Key> X11PasteDisplay::findOrBorrow(xcb_keysym_t symbol, const Keymaps& keymaps) {
    if (const auto key = keymaps.injected.keyFor(symbol, keymaps.group))
        return *key;
    const auto* setup = xcb_get_setup(m_connection.get());
    for (unsigned code = setup->max_keycode; code >= setup->min_keycode; --code) {
        const auto key = static_cast<xcb_keycode_t>(code);
        if (!keymaps.injected.isUnused(key) || !keymaps.user.isUnused(key))
            continue;
        returnBorrowedKey();
        bind(key, symbol);
        m_borrowedKey = key;
        return X11Keymap::Key{key, keymaps.group};
    }
    return Error{"the keyboard layout has no key for it and none to spare"};
}

void X11PasteDisplay::returnBorrowedKey() {
    if (m_borrowedKey == 0)
        return;
    bind(m_borrowedKey, XKB_KEY_NoSymbol);
    xcb_flush(m_connection.get());
    m_borrowedKey = 0;
}

Outcome X11PasteDisplay::inject(const std::vector<xcb_keycode_t>& released,
                                const std::vector<xcb_keycode_t>& chord) {
    std::vector<xcb_void_cookie_t> sent;
    const auto send = [&](std::uint8_t type, xcb_keycode_t key) {
        sent.push_back(xcb_test_fake_input_checked(m_connection.get(), type, key, XCB_CURRENT_TIME,
                                                   XCB_NONE, 0, 0, 0));
    };
    for (const xcb_keycode_t key : released)
        send(XCB_KEY_RELEASE, key);
    for (const xcb_keycode_t key : chord)
        send(XCB_KEY_PRESS, key);
    for (auto key = chord.rbegin(); key != chord.rend(); ++key)
        send(XCB_KEY_RELEASE, *key);
    bool refused = false;
    for (const xcb_void_cookie_t& cookie : sent)
        refused = owned(xcb_request_check(m_connection.get(), cookie)) != nullptr || refused;
    if (xcb_connection_has_error(m_connection.get()))
        return Error{"the connection to the X server was lost"};
    if (refused)
        return Error{"the X server refused the keys"};
    return Success{};
}

Outcome X11PasteDisplay::pressPasteChord() {
    const auto chord = chordOfFocusedWindow();
    if (!chord)
        return chord.error();
    const auto keymaps = readKeymaps();
    if (!keymaps)
        return keymaps.error();

    const bool inserts = chord.value() == PasteChord::shiftInsert;
    const auto symbol = findOrBorrow(inserts ? XKB_KEY_Insert : XKB_KEY_v, keymaps.value());
    if (!symbol)
        return symbol.error();
    const std::uint8_t group = symbol.value().group;
    const auto control = keymaps.value().injected.keyFor(XKB_KEY_Control_L, group);
    const auto shift = keymaps.value().injected.keyFor(XKB_KEY_Shift_L, group);
    if (!control || !shift)
        return Error{"the keyboard layout has no Control or no Shift key"};

    std::vector<xcb_keycode_t> keys;
    if (!inserts)
        keys.push_back(control->code);
    if (chord.value() != PasteChord::controlV)
        keys.push_back(shift->code);
    keys.push_back(symbol.value().code);

    const auto lockGroup = [this](std::uint8_t which) {
        xcb_xkb_latch_lock_state(m_connection.get(), XCB_XKB_ID_USE_CORE_KBD, 0, 0, 1, which, 0, 0,
                                 0);
    };
    if (group != keymaps.value().group)
        lockGroup(group);
    Outcome outcome = inject(heldModifiers(keymaps.value()), keys);
    if (group != keymaps.value().group) {
        lockGroup(keymaps.value().lockedGroup);
        xcb_flush(m_connection.get());
    }
    return outcome;
}

}  // namespace nulo
