#pragma once

#include "support/TestBus.h"

namespace nulo {

/// This process's bus; not running until it is started.
TestBus& testBus();

}  // namespace nulo
