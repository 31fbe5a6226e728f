#pragma once

#include <functional>

namespace nulo::service {

/// Asked now and then during long work, so it is cheap. False once the client of the work is gone.
using StillWanted = std::function<bool()>;

}  // namespace nulo::service
