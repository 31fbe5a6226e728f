#pragma once

#include <string>

#include "base/Result.h"
#include "hotkey/Chord.h"
#include "keytap/Protocol.h"

namespace nulo {

/// How nulo-keytap is asked for the chord in this keymap (XKB text): a modifier's keys are those of
/// any of its layouts, the key is where the first layout has it. The default chord is left Alt and
/// Space where the keymap tells of none. Any thread.
Result<keytap::Request> chordRequest(const std::string& keymap, const Chord& chord);

}  // namespace nulo
