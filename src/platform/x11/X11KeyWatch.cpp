#include "platform/x11/X11KeyWatch.h"

#include <xkbcommon/xkbcommon.h>

#include <algorithm>

namespace nulo {
namespace {

constexpr int mostGroups = 4;

std::optional<Chord::Modifier> modifierOf(xcb_keysym_t symbol) {
    switch (symbol) {
        case XKB_KEY_Control_L:
        case XKB_KEY_Control_R:
            return Chord::Modifier::ctrl;
        case XKB_KEY_Alt_L:
        case XKB_KEY_Alt_R:
            return Chord::Modifier::alt;
        case XKB_KEY_Shift_L:
        case XKB_KEY_Shift_R:
            return Chord::Modifier::shift;
        case XKB_KEY_Super_L:
        case XKB_KEY_Super_R:
            return Chord::Modifier::super;
        default:
            return std::nullopt;
    }
}

}  // namespace

X11KeyWatch::X11KeyWatch(xcb_connection_t* connection, const InjectionGate& gate,
                         const Chord& chord)
    : m_connection(connection),
      m_gate(&gate),
      m_modifiers(chord.modifiers),
      m_space(xkb_keysym_from_name(chord.symbol.c_str(), XKB_KEYSYM_NO_FLAGS)) {}

std::optional<X11KeyWatch> X11KeyWatch::begin(xcb_connection_t* connection,
                                              const InjectionGate& gate, const Chord& chord) {
    X11KeyWatch watch(connection, gate, chord);
    auto keys = X11Keymap::read(connection);
    if (!keys)
        return std::nullopt;
    watch.m_keys = std::move(*keys);
    for (const X11InjectingKeyboard& keyboard : injectingKeyboards(connection))
        watch.m_injecting.insert(keyboard.device);
    watch.readState();
    return watch;
}

void X11KeyWatch::readState() {
    const auto keymap = NULO_XCB(xcb_query_keymap, m_connection);
    for (int key = 0; keymap && key < 256; ++key)
        m_down[0].set(key, keymap->keys[key / 8] >> (key % 8) & 1);
    if (const auto state = NULO_XCB(xcb_xkb_get_state, m_connection, XCB_XKB_ID_USE_CORE_KBD))
        m_group = state->group;
    findChord();
}

void X11KeyWatch::findChord() {
    m_optionKeys.reset();
    for (std::size_t key = 0; key < m_optionKeys.size(); ++key)
        for (int group = 0; group < mostGroups; ++group)
            if (optionOf(static_cast<xcb_keycode_t>(key), group))
                m_optionKeys.set(key);
    m_spaceKeys = m_keys.keysFor(m_space, m_group);
}

void X11KeyWatch::groupChanged(int group) {
    m_group = group;
    m_spaceKeys = m_keys.keysFor(m_space, m_group);
}

bool X11KeyWatch::note(const xcb_input_raw_key_press_event_t& raw, bool press) {
    if (m_gate->isInjecting() && m_injecting.contains(raw.sourceid))
        return false;
    const auto key = static_cast<xcb_keycode_t>(raw.detail);
    auto& down = m_down[raw.sourceid];
    if (press) {
        const bool repeats = down.test(key);
        const bool isNew = repeats || !isDown(key);
        down.set(key);
        return isNew;
    }
    down.reset(key);
    m_down[0].reset(key);
    return !isDown(key);
}

bool X11KeyWatch::layoutChanged() {
    const auto before = m_optionKeys;
    if (auto keys = X11Keymap::read(m_connection))
        m_keys = std::move(*keys);
    findChord();
    return before != m_optionKeys;
}

bool X11KeyWatch::hasChord() const {
    std::set<Chord::Modifier> found;
    for (const auto key : optionKeys())
        for (int group = 0; group < mostGroups; ++group)
            if (const auto modifier = optionOf(key, group))
                found.insert(*modifier);
    return m_spaceKeys.any() && found == m_modifiers;
}

bool X11KeyWatch::isDown(xcb_keycode_t key) const {
    return std::any_of(m_down.begin(), m_down.end(),
                       [key](const auto& keyboard) { return keyboard.second.test(key); });
}

std::vector<xcb_keycode_t> X11KeyWatch::optionKeys() const {
    std::vector<xcb_keycode_t> keys;
    for (int key = 0; key < 256; ++key)
        if (m_optionKeys.test(key))
            keys.push_back(static_cast<xcb_keycode_t>(key));
    return keys;
}

std::optional<Chord::Modifier> X11KeyWatch::optionOf(xcb_keycode_t key, int group) const {
    const auto modifier = modifierOf(m_keys.symbol(key, group));
    return modifier && m_modifiers.contains(*modifier) ? modifier : std::nullopt;
}

std::optional<Chord::Modifier> X11KeyWatch::optionOf(xcb_keycode_t key) const {
    return optionOf(key, m_group);
}

bool X11KeyWatch::isOptionDown() const {
    std::set<Chord::Modifier> down;
    for (const auto key : optionKeys())
        if (const auto modifier = optionOf(key); modifier && isDown(key))
            down.insert(*modifier);
    return down == m_modifiers;
}

std::vector<xcb_keycode_t> X11KeyWatch::spacesDown() const {
    std::vector<xcb_keycode_t> spaces;
    for (int key = 0; key < 256; ++key)
        if (isSpace(static_cast<xcb_keycode_t>(key)) && isDown(static_cast<xcb_keycode_t>(key)))
            spaces.push_back(static_cast<xcb_keycode_t>(key));
    return spaces;
}

}  // namespace nulo
