#include "platform/x11/X11Keymap.h"

#include <xcb/xinput.h>
#include <xkbcommon/xkbcommon-keysyms.h>

#include <string_view>

namespace nulo {
namespace {

constexpr int mostKeys = 256;
constexpr std::uint8_t mostGroups = 4;

bool isModifierSymbol(xcb_keysym_t symbol) {
    return (symbol >= XKB_KEY_Shift_L && symbol <= XKB_KEY_Hyper_R) ||
           symbol == XKB_KEY_Mode_switch ||
           (symbol >= XKB_KEY_ISO_Lock && symbol <= XKB_KEY_ISO_Level5_Lock);
}

/// Whether a modifier stays, or has done its work, when its key is up again.
bool outlastsItsKey(xcb_keysym_t symbol) {
    return symbol == XKB_KEY_Caps_Lock || symbol == XKB_KEY_Shift_Lock ||
           symbol == XKB_KEY_ISO_Lock || symbol == XKB_KEY_ISO_Level3_Lock ||
           symbol == XKB_KEY_ISO_Level5_Lock ||
           (symbol >= XKB_KEY_ISO_Group_Lock && symbol <= XKB_KEY_ISO_Last_Group_Lock);
}

}  // namespace

std::optional<X11Keymap> X11Keymap::read(xcb_connection_t* connection,
                                         xcb_xkb_device_spec_t keyboard) {
    constexpr std::uint16_t parts = XCB_XKB_MAP_PART_KEY_SYMS | XCB_XKB_MAP_PART_MODIFIER_MAP;
    const auto reply = NULO_XCB(xcb_xkb_get_map, connection, keyboard, parts, 0, 0, 0, 0, 0, 0, 0,
                                0, 0, 0, 0, 0, 0, 0, 0, 0);
    if (!reply)
        return std::nullopt;
    xcb_xkb_get_map_map_t map{};
    xcb_xkb_get_map_map_unpack(xcb_xkb_get_map_map(reply.get()), reply->nTypes, reply->nKeySyms,
                               reply->nKeyActions, reply->totalActions, reply->totalKeyBehaviors,
                               reply->virtualMods, reply->totalKeyExplicit, reply->totalModMapKeys,
                               reply->totalVModMapKeys, reply->present, &map);
    X11Keymap keymap;
    int key = reply->firstKeySym;
    auto symbolMap = xcb_xkb_get_map_map_syms_rtrn_iterator(reply.get(), &map);
    for (; symbolMap.rem > 0 && key < mostKeys; xcb_xkb_key_sym_map_next(&symbolMap), ++key) {
        const xcb_keysym_t* symbols = xcb_xkb_key_sym_map_syms(symbolMap.data);
        const int groups = symbolMap.data->groupInfo & 0x0F;
        const int width = symbolMap.data->width;
        for (int group = 0; group < groups; ++group)
            keymap.add(static_cast<xcb_keycode_t>(key), symbols[group * width],
                       width > 1 ? symbols[group * width + 1] : XKB_KEY_NoSymbol);
    }
    // A key can be a modifier without the symbol of one, as a modifier can be left unmapped.
    const xcb_xkb_key_mod_map_t* modifiers = xcb_xkb_get_map_map_modmap_rtrn(&map);
    for (int i = 0; i < reply->totalModMapKeys; ++i)
        if (modifiers[i].mods != 0)
            keymap.m_modifiers.set(modifiers[i].keycode);
    return keymap;
}

void X11Keymap::add(xcb_keycode_t key, xcb_keysym_t symbol, xcb_keysym_t withShift) {
    m_symbols[key].push_back(symbol);
    m_symbolsWithShift[key].push_back(withShift);
    if (!isModifierSymbol(symbol))
        return;
    m_modifiers.set(key);
    if (!outlastsItsKey(symbol))
        m_heldModifiers.set(key);
}

X11Keymap::KeySet X11Keymap::keysFor(xcb_keysym_t wanted, int group) const {
    KeySet keys;
    for (const int where : {group, 0, 1, 2, 3})
        for (const auto* symbols : {&m_symbols, &m_symbolsWithShift}) {
            for (std::size_t key = 0; key < keys.size(); ++key)
                keys.set(key, symbolOf((*symbols)[key], where) == wanted);
            if (keys.any())
                return keys;
        }
    return keys;
}

std::optional<X11Keymap::Key> X11Keymap::keyFor(xcb_keysym_t wanted, std::uint8_t group) const {
    const auto search = [&](std::uint8_t where) -> std::optional<Key> {
        for (int key = 0; key < mostKeys; ++key)
            if (symbol(static_cast<xcb_keycode_t>(key), where) == wanted)
                return Key{static_cast<xcb_keycode_t>(key), where};
        return std::nullopt;
    };
    if (const auto key = search(group))
        return key;
    for (std::uint8_t other = 0; other < mostGroups; ++other)
        if (const auto key = search(other))
            return key;
    return std::nullopt;
}

xcb_keysym_t X11Keymap::symbolOf(const Symbols& symbols, int group) {
    return symbols.empty() ? XKB_KEY_NoSymbol : symbols[group % symbols.size()];
}

std::vector<X11InjectingKeyboard> injectingKeyboards(xcb_connection_t* connection) {
    std::vector<X11InjectingKeyboard> found;
    const auto devices = NULO_XCB(xcb_input_xi_query_device, connection, XCB_INPUT_DEVICE_ALL);
    if (!devices)
        return found;
    auto each = xcb_input_xi_query_device_infos_iterator(devices.get());
    for (; each.rem > 0; xcb_input_xi_device_info_next(&each)) {
        const std::string_view name(xcb_input_xi_device_info_name(each.data), each.data->name_len);
        if (each.data->type == XCB_INPUT_DEVICE_TYPE_SLAVE_KEYBOARD &&
            name.ends_with("XTEST keyboard"))
            found.push_back({each.data->deviceid, each.data->attachment});
    }
    return found;
}

}  // namespace nulo
