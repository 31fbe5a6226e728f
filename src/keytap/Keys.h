#pragma once

#include <linux/input-event-codes.h>

#include <algorithm>
#include <cstdint>

#include "keytap/Protocol.h"

namespace nulo::keytap {

/// As the kernel numbers keys, before any layout.
using KeyCode = std::uint16_t;

constexpr bool isPossibleOption(KeyCode key) {
    return std::find(possibleOptionCodes.begin(), possibleOptionCodes.end(), key) !=
           possibleOptionCodes.end();
}

constexpr bool isModifier(KeyCode key) {
    return isPossibleOption(key) || key == KEY_LEFTSHIFT || key == KEY_RIGHTSHIFT;
}

}  // namespace nulo::keytap
