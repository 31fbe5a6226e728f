#include "platform/x11/X11PasteKeymap.h"

#include <xkbcommon/xkbcommon-keysyms.h>
#include <xkbcommon/xkbcommon-x11.h>

#include <algorithm>
#include <limits>

namespace nulo {
namespace {

constexpr xkb_layout_index_t maximumGroups = 4;

/// The symbol of the key alone in a group; keys with fewer groups repeat theirs.
xkb_keysym_t plainSymbol(xkb_keymap* keymap, xkb_keycode_t code, xkb_layout_index_t group) {
    const xkb_layout_index_t groups = xkb_keymap_num_layouts_for_key(keymap, code);
    if (groups == 0)
        return XKB_KEY_NoSymbol;
    const xkb_keysym_t* symbols = nullptr;
    const int count = xkb_keymap_key_get_syms_by_level(keymap, code, group % groups, 0, &symbols);
    return count == 1 ? symbols[0] : XKB_KEY_NoSymbol;
}

bool modifiesWhileHeld(xkb_keysym_t symbol) {
    switch (symbol) {
        case XKB_KEY_Caps_Lock:
        case XKB_KEY_Shift_Lock:
        case XKB_KEY_Num_Lock:
        case XKB_KEY_ISO_Lock:
        case XKB_KEY_ISO_Level3_Lock:
        case XKB_KEY_ISO_Level5_Lock:
            return false;
        case XKB_KEY_Mode_switch:
        case XKB_KEY_ISO_Group_Latch:
        case XKB_KEY_ISO_Level5_Shift:
        case XKB_KEY_ISO_Level5_Latch:
            return true;
        default:
            return (symbol >= XKB_KEY_Shift_L && symbol <= XKB_KEY_Hyper_R) ||
                   (symbol >= XKB_KEY_ISO_Level2_Latch && symbol <= XKB_KEY_ISO_Level3_Latch);
    }
}

}  // namespace

std::optional<X11PasteKeymap> X11PasteKeymap::read(xcb_connection_t* connection,
                                                   xkb_context* context, std::int32_t device) {
    xkb_keymap* keymap =
        xkb_x11_keymap_new_from_device(context, connection, device, XKB_KEYMAP_COMPILE_NO_FLAGS);
    if (!keymap)
        return std::nullopt;
    return X11PasteKeymap(keymap);
}

std::optional<X11PasteKeymap::Key> X11PasteKeymap::keyFor(xkb_keysym_t symbol,
                                                          std::uint8_t group) const {
    const auto search = [&](std::uint8_t where) -> std::optional<Key> {
        const xkb_keycode_t last = std::min<xkb_keycode_t>(
            xkb_keymap_max_keycode(m_keymap.get()), std::numeric_limits<xcb_keycode_t>::max());
        for (xkb_keycode_t code = xkb_keymap_min_keycode(m_keymap.get()); code <= last; ++code)
            if (plainSymbol(m_keymap.get(), code, where) == symbol)
                return Key{static_cast<xcb_keycode_t>(code), where};
        return std::nullopt;
    };
    if (const auto key = search(group))
        return key;
    for (std::uint8_t other = 0; other < maximumGroups; ++other)
        if (const auto key = search(other))
            return key;
    return std::nullopt;
}

bool X11PasteKeymap::isHeldModifier(xcb_keycode_t code) const {
    for (xkb_layout_index_t group = 0; group < maximumGroups; ++group)
        if (modifiesWhileHeld(plainSymbol(m_keymap.get(), code, group)))
            return true;
    return false;
}

bool X11PasteKeymap::isUnused(xcb_keycode_t code) const {
    return xkb_keymap_num_layouts_for_key(m_keymap.get(), code) == 0;
}

}  // namespace nulo
