#pragma once

#include <functional>

namespace nulo::service {

/// Asked now and then during long work: false when whoever asked for it is gone. Cheap.
using StillWanted = std::function<bool()>;

}  // namespace nulo::service
