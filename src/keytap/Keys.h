#pragma once

#include <linux/input-event-codes.h>

#include <algorithm>
#include <array>
#include <cstdint>

namespace nulo::keytap {

/// As the kernel numbers keys, before any layout.
using KeyCode = std::uint16_t;

/// The keys that a layout may make an Alt key. A client that could name any key would learn from
/// the chord when that key is pressed.
inline constexpr std::array<KeyCode, 7> possibleOptionKeys{
    KEY_LEFTALT,  KEY_RIGHTALT,  KEY_LEFTMETA, KEY_RIGHTMETA,
    KEY_LEFTCTRL, KEY_RIGHTCTRL, KEY_CAPSLOCK};

constexpr bool isPossibleOption(KeyCode key) {
    return std::find(possibleOptionKeys.begin(), possibleOptionKeys.end(), key) !=
           possibleOptionKeys.end();
}

constexpr bool isModifier(KeyCode key) {
    return isPossibleOption(key) || key == KEY_LEFTSHIFT || key == KEY_RIGHTSHIFT;
}

}  // namespace nulo::keytap
