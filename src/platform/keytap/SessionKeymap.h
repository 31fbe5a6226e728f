#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace nulo {

/// The evdev codes of the keys that are Alt in this keymap (XKB text), in any of its layouts; of
/// those that nulo-keytap takes. None when it cannot be read. Any thread.
std::vector<std::uint8_t> optionKeysOf(const std::string& keymap);

/// The keymap of the Wayland session, which any of its programs may ask for; empty when there is
/// none, or the compositor has not answered within a second. Any thread.
std::string sessionKeymap();

}  // namespace nulo
