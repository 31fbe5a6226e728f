#pragma once

#include "rig/process/PrivateBus.h"

namespace nulo {

/// This process's bus; not running until it is started.
PrivateBus& testBus();

}  // namespace nulo
