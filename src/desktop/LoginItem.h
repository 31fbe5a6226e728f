#pragma once

#include "base/Result.h"

namespace nulo {

/// Whether the program starts when its user logs in. Main thread.
class LoginItem {
  public:
    virtual ~LoginItem() = default;
    /// Makes the program start at every login; doing so twice is no error. The error says why it
    /// will not start, and names the file.
    virtual Outcome registerItem() = 0;
};

}  // namespace nulo
