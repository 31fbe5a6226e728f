#pragma once

#include "base/Print.h"
#include "desktop/UserDefaults.h"
#include "hotkey/Chord.h"

namespace nulo {

/// The chord that the user wants. Option+Space without a wish, and in place of one that is refused,
/// for the reason that is printed. Main thread.
Chord chosenChord(const UserDefaults& defaults, const Print& print);

}  // namespace nulo
