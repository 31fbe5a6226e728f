#include "platform/x11/X11EventTapKeys.h"

#include <xkbcommon/xkbcommon-keysyms.h>

#include "platform/x11/Xcb.h"

namespace nulo {
namespace {

bool isOptionSymbol(xcb_keysym_t symbol) {
    return symbol == XKB_KEY_Alt_L || symbol == XKB_KEY_Alt_R;
}

// Besides the keys of the modifier map: a layout may leave a modifier unmapped.
bool isModifierSymbol(xcb_keysym_t symbol) {
    return (symbol >= XKB_KEY_Shift_L && symbol <= XKB_KEY_Hyper_R) ||
           symbol == XKB_KEY_Mode_switch ||
           (symbol >= XKB_KEY_ISO_Lock && symbol <= XKB_KEY_ISO_Level5_Lock);
}

}  // namespace

std::optional<X11EventTapKeys> X11EventTapKeys::read(xcb_connection_t* connection) {
    constexpr std::uint16_t parts = XCB_XKB_MAP_PART_KEY_SYMS | XCB_XKB_MAP_PART_MODIFIER_MAP;
    const XcbMemory<xcb_xkb_get_map_reply_t> reply(
        xcb_xkb_get_map_reply(connection,
                              xcb_xkb_get_map(connection, XCB_XKB_ID_USE_CORE_KBD, parts, 0, 0, 0,
                                              0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0),
                              nullptr));
    if (!reply)
        return std::nullopt;
    xcb_xkb_get_map_map_t map{};
    xcb_xkb_get_map_map_unpack(xcb_xkb_get_map_map(reply.get()), reply->nTypes, reply->nKeySyms,
                               reply->nKeyActions, reply->totalActions, reply->totalKeyBehaviors,
                               reply->virtualMods, reply->totalKeyExplicit, reply->totalModMapKeys,
                               reply->totalVModMapKeys, reply->present, &map);
    X11EventTapKeys keys;
    int key = reply->firstKeySym;
    auto symbolMap = xcb_xkb_get_map_map_syms_rtrn_iterator(reply.get(), &map);
    for (; symbolMap.rem > 0 && key < 256; xcb_xkb_key_sym_map_next(&symbolMap), ++key) {
        const xcb_keysym_t* symbols = xcb_xkb_key_sym_map_syms(symbolMap.data);
        const int groups = symbolMap.data->groupInfo & 0x0F;
        for (int group = 0; group < groups; ++group) {
            const xcb_keysym_t symbol = symbols[group * symbolMap.data->width];
            keys.m_symbols[key].push_back(symbol);
            if (isOptionSymbol(symbol))
                keys.m_optionKeys.set(key);
            if (isModifierSymbol(symbol))
                keys.m_modifiers.set(key);
        }
    }
    const xcb_xkb_key_mod_map_t* modifiers = xcb_xkb_get_map_map_modmap_rtrn(&map);
    for (int i = 0; i < reply->totalModMapKeys; ++i)
        if (modifiers[i].mods != 0)
            keys.m_modifiers.set(modifiers[i].keycode);
    return keys;
}

bool X11EventTapKeys::isOption(xcb_keycode_t key, int group) const {
    return isOptionSymbol(symbol(key, group));
}

bool X11EventTapKeys::isSpace(xcb_keycode_t key, int group) const {
    return symbol(key, group) == XKB_KEY_space;
}

xcb_keysym_t X11EventTapKeys::symbol(xcb_keycode_t key, int group) const {
    const auto& symbols = m_symbols[key];
    return symbols.empty() ? XKB_KEY_NoSymbol : symbols[group % symbols.size()];
}

}  // namespace nulo
