#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Result.h"

namespace nulo::service {

/// What the command line asks for.
struct Options {
    enum class Action { serve, check, help, version };

    Action action = Action::serve;
    std::optional<std::string> address;  // absent here: as the configuration says
    std::optional<int> port;             // 0: any free one
    std::filesystem::path configFile;    // empty: the user's, when there is one
    std::filesystem::path tokenFile;
    std::filesystem::path modelFolder;   // empty: the installed one
    std::filesystem::path updateFolder;  // empty: no updates are offered
    std::size_t jobs = 0;                // recognitions at once; 0: one a core
};

/// `arguments` without the program's name. The error is a line for the user.
Result<Options> parsedOptions(const std::vector<std::string>& arguments);

/// Refuses an address that other machines reach while there is no token to tell them apart.
Outcome checkReach(const std::string& address, bool hasToken);

/// What --help prints; its first line is the usage.
std::string_view helpText();

}  // namespace nulo::service
