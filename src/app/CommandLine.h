#pragma once

#include <string_view>
#include <vector>

#include "base/Result.h"

namespace nulo {

/// What the program was started with.
struct CommandLine {
    enum class Action { run, help, version };
    Action action = Action::run;
    bool isQuiet = false;  // standard output goes nowhere
};

/// `arguments` without the program's name. Qt's own ones are passed over: the session manager gives
/// one when it starts the program again. An error names the argument that means nothing.
Result<CommandLine> parsedCommandLine(const std::vector<std::string_view>& arguments);

/// What --help prints; its first line is the usage.
std::string_view commandLineHelp();

}  // namespace nulo
