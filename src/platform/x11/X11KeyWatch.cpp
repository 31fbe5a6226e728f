#include "platform/x11/X11KeyWatch.h"

#include <algorithm>

namespace nulo {

std::optional<X11KeyWatch> X11KeyWatch::begin(xcb_connection_t* connection,
                                              const InjectionGate& gate) {
    X11KeyWatch watch(connection, gate);
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
    const auto before = m_keys.optionKeys();
    if (auto keys = X11Keymap::read(m_connection))
        m_keys = std::move(*keys);
    return before != m_keys.optionKeys();
}

bool X11KeyWatch::isDown(xcb_keycode_t key) const {
    return std::any_of(m_down.begin(), m_down.end(),
                       [key](const auto& keyboard) { return keyboard.second.test(key); });
}

std::vector<xcb_keycode_t> X11KeyWatch::optionKeys() const {
    std::vector<xcb_keycode_t> keys;
    for (int key = 0; key < 256; ++key)
        if (m_keys.optionKeys().test(key))
            keys.push_back(static_cast<xcb_keycode_t>(key));
    return keys;
}

bool X11KeyWatch::isOptionDown() const {
    const auto keys = optionKeys();
    return std::any_of(keys.begin(), keys.end(),
                       [this](xcb_keycode_t key) { return isOption(key) && isDown(key); });
}

std::vector<xcb_keycode_t> X11KeyWatch::spacesDown() const {
    std::vector<xcb_keycode_t> spaces;
    for (int key = 0; key < 256; ++key)
        if (isSpace(static_cast<xcb_keycode_t>(key)) && isDown(static_cast<xcb_keycode_t>(key)))
            spaces.push_back(static_cast<xcb_keycode_t>(key));
    return spaces;
}

}  // namespace nulo
