#include "platform/keytap/ChordRequest.h"

#include <linux/input-event-codes.h>
#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <set>

namespace nulo {
namespace {

using keytap::ModifierKeys;
using keytap::Request;

constexpr xkb_keycode_t xkbOffset = 8;  // of X11's key codes
constexpr ModifierKeys leftAlt = 1, rightAlt = 2;
static_assert(keytap::modifierCodes[0] == KEY_LEFTALT && keytap::modifierCodes[1] == KEY_RIGHTALT);

struct Free {
    void operator()(xkb_context* context) const { xkb_context_unref(context); }
    void operator()(xkb_keymap* keymap) const { xkb_keymap_unref(keymap); }
};

/// Among a request's modifiers and the symbols below, which are in the same order.
constexpr std::size_t placeOf(Chord::Modifier modifier) {
    return static_cast<std::size_t>(modifier);
}

constexpr xkb_keysym_t modifierSymbols[][2] = {{XKB_KEY_Control_L, XKB_KEY_Control_R},
                                               {XKB_KEY_Alt_L, XKB_KEY_Alt_R},
                                               {XKB_KEY_Shift_L, XKB_KEY_Shift_R},
                                               {XKB_KEY_Super_L, XKB_KEY_Super_R}};

/// What the key gives in that layout, alone or with Shift (a level of 0 or 1).
xkb_keysym_t symbolOf(xkb_keymap* keymap, unsigned key, xkb_layout_index_t layout,
                      xkb_level_index_t level) {
    const xkb_keysym_t* symbols = nullptr;
    const int count =
        xkb_keymap_key_get_syms_by_level(keymap, key + xkbOffset, layout, level, &symbols);
    return count == 1 ? symbols[0] : static_cast<xkb_keysym_t>(XKB_KEY_NoSymbol);
}

/// Which one of `wanted` the key is in any layout, in the first where it is two.
std::optional<Chord::Modifier> modifierIn(xkb_keymap* keymap, unsigned key,
                                          const std::set<Chord::Modifier>& wanted) {
    const auto layouts = xkb_keymap_num_layouts_for_key(keymap, key + xkbOffset);
    for (xkb_layout_index_t layout = 0; layout < layouts; ++layout)
        for (const Chord::Modifier modifier : wanted) {
            const auto& [left, right] = modifierSymbols[placeOf(modifier)];
            const xkb_keysym_t symbol = symbolOf(keymap, key, layout, 0);
            if (symbol == left || symbol == right)
                return modifier;
        }
    return std::nullopt;
}

/// In the first layout that has it; zero when none has.
std::uint8_t keyFor(xkb_keymap* keymap, xkb_keysym_t symbol) {
    for (xkb_layout_index_t layout = 0; layout < xkb_keymap_num_layouts(keymap); ++layout)
        for (const xkb_level_index_t level : {0, 1})
            for (std::uint8_t key = 1; key < 255; ++key)
                if (keytap::isChordKey(key) && symbolOf(keymap, key, layout, level) == symbol)
                    return key;
    return 0;
}

/// Nothing where the layout lacks a key, or the service would not take those that it has.
std::optional<Request> requestIn(xkb_keymap* keymap, const Chord& chord) {
    Request request;
    request.key = keyFor(keymap, xkb_keysym_from_name(chord.symbol.c_str(), XKB_KEYSYM_NO_FLAGS));
    for (std::size_t bit = 0; bit < keytap::modifierCodes.size(); ++bit) {
        const auto modifier = modifierIn(keymap, keytap::modifierCodes[bit], chord.modifiers);
        const auto possible =
            modifier == Chord::Modifier::shift ? keytap::shiftKeys : keytap::commandKeys;
        if (modifier)
            request.modifiers[placeOf(*modifier)] |= possible & 1u << bit;
    }
    for (const ModifierKeys unwanted : {rightAlt, keytap::characterKeys})
        for (ModifierKeys& keys : request.modifiers)
            if (!isChord(request))
                keys &= ~unwanted;
    const bool isWhole =
        std::all_of(chord.modifiers.begin(), chord.modifiers.end(),
                    [&](auto modifier) { return request.modifiers[placeOf(modifier)] != 0; });
    return request.key != 0 && isWhole && isChord(request) ? std::optional(request) : std::nullopt;
}

}  // namespace

Result<Request> chordRequest(const std::string& text, const Chord& chord) {
    if (chord.modifiers == std::set{Chord::Modifier::shift})
        return Error{"nulo-keytap wants Ctrl, Alt or Super in a shortcut: " + chord.name() +
                     " has none"};
    const std::unique_ptr<xkb_context, Free> context(xkb_context_new(static_cast<xkb_context_flags>(
        XKB_CONTEXT_NO_DEFAULT_INCLUDES | XKB_CONTEXT_NO_ENVIRONMENT_NAMES)));
    std::unique_ptr<xkb_keymap, Free> keymap;
    if (context) {
        xkb_context_set_log_level(context.get(), XKB_LOG_LEVEL_CRITICAL);
        keymap.reset(xkb_keymap_new_from_string(
            context.get(), text.c_str(), XKB_KEYMAP_FORMAT_TEXT_V1, XKB_KEYMAP_COMPILE_NO_FLAGS));
    }
    if (keymap)
        if (const auto request = requestIn(keymap.get(), chord))
            return *request;
    if (chord == Chord())
        return Request{.key = KEY_SPACE, .modifiers{0, leftAlt}};
    return Error{keymap ? "the keyboard's layout lacks a key of " + chord.name()
                        : "the keyboard's layout, in which to look for " + chord.name() +
                              ", cannot be read"};
}

}  // namespace nulo
