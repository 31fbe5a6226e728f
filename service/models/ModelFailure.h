#pragma once

#include <string>

#include "base/Result.h"

namespace nulo::service {

/// Why a model could not be had.
struct ModelFailure {
    /// The exit status of the command.
    enum class Kind {
        refused = 1,
        misused = 2,  // the command line
        server = 3,   // not reached, no such file, broken off, too slow
        digest = 4,   // what arrived is another file
        disk = 5,
        busy = 6,  // another one is at work in the folder
        interrupted = 130,
    };
    Kind kind = Kind::refused;
    std::string text;  // one sentence that a person can act on, without a final stop
};

using ModelOutcome = Result<Success, ModelFailure>;

}  // namespace nulo::service
