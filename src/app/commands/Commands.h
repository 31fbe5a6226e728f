#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "app/commands/CommandLine.h"
#include "base/Result.h"

namespace nulo {

/// Has the Nulo that runs do what its interface on the bus calls `method`, `back` being the
/// argument where it takes one; waits for its answer.
using AskRunningNulo =
    std::function<Outcome(const std::string& method, std::optional<unsigned> back)>;

/// Does what a command asks for that is about texts and takes of before: pasteLast, copyLast,
/// retry, history or forget. Prints what came of it: one line but for the history, on standard
/// error when it failed. The process's exit status.
int carryOut(const CommandLine& command, const std::filesystem::path& stateFolder,
             const AskRunningNulo& ask);

}  // namespace nulo
