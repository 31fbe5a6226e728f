#pragma once

#include "rig/process/PrivateBus.h"

namespace nulo {

/// This process's bus; not running until it is started.
inline PrivateBus& testBus() {
    static PrivateBus bus;
    return bus;
}

}  // namespace nulo
