#pragma once

#include "base/StatusItem.h"

namespace nulo {

/// The program's signs in the tray: five bars of a wave. Recording is red; a missing permission is
/// orange, with an exclamation mark; idle reads on dark and on light panels, of which a tray item
/// never learns.
StatusIcon idleIcon();
StatusIcon recordingIcon();
StatusIcon warningIcon();

}  // namespace nulo
