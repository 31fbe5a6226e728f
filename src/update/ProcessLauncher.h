#pragma once

#include <string>
#include <vector>

#include "base/Result.h"

namespace nulo {

class ProcessLauncher {
  public:
    virtual ~ProcessLauncher() = default;
    /// Starts the program `command[0]` (a path) in the background, with no input and no output, in
    /// a session of its own, so that it outlives this process. Returns once it runs. Main thread.
    virtual Outcome launch(const std::vector<std::string>& command) = 0;
};

}  // namespace nulo
