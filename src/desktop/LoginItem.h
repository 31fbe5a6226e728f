#pragma once

#include "base/Result.h"

namespace nulo {

/// Whether the program starts when its user logs in. Main thread.
class LoginItem {
  public:
    virtual ~LoginItem() = default;
    /// From now on it starts at every login; doing so twice is no error. The error's text says why
    /// that is not so and names the file.
    virtual Outcome registerItem() = 0;
};

}  // namespace nulo
