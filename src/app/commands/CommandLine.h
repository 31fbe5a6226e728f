#pragma once

#include <string_view>
#include <vector>

#include "base/Result.h"

namespace nulo {

/// What the program was started with.
struct CommandLine {
    enum class Action {
        run,
        doctor,
        pasteLast,
        copyLast,
        history,
        forget,
        retry,
        help,
        version,
    };
    Action action = Action::run;
    bool isQuiet = false;  // standard output goes nowhere
    bool isJson = false;   // what the doctor prints
    unsigned back = 1;     // which of the last texts, counted from the last
};

/// `arguments` without the program's name. Arguments that are Qt's own are passed over: the session
/// manager gives one when it starts the program again. The error names the argument that is not
/// known.
Result<CommandLine> parsedCommandLine(const std::vector<std::string_view>& arguments);

/// What --help prints; its first line is the usage.
std::string_view commandLineHelp();

}  // namespace nulo
