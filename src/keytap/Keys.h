#pragma once

#include <linux/input-event-codes.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <vector>

#include "keytap/Protocol.h"

namespace nulo::keytap {

/// As the kernel numbers keys, before any layout.
using KeyCode = std::uint16_t;

constexpr bool isModifier(KeyCode key) {
    return std::find(modifierCodes.begin(), modifierCodes.end(), key) != modifierCodes.end();
}

/// What is watched for: a key, and modifiers, each of which is down when one of its keys is.
/// Without modifiers it is never pressed.
struct ChordKeys {
    std::vector<std::set<KeyCode>> modifiers{{KEY_LEFTALT}};
    KeyCode key = KEY_SPACE;
};

}  // namespace nulo::keytap
