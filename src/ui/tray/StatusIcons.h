#pragma once

#include "desktop/StatusItem.h"

namespace nulo {

/// The program's signs in the tray: five bars of a wave. Recording is red; a missing permission is
/// orange, with an exclamation mark. A tray item never learns the colour of its panel: panels that
/// take an icon by its name colour it themselves, the drawn idle icon reads on dark and on light.
StatusIcon idleIcon();
StatusIcon recordingIcon();
StatusIcon warningIcon();

}  // namespace nulo
