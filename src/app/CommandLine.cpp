#include "app/CommandLine.h"

#include <algorithm>
#include <array>

namespace nulo {
namespace {

constexpr std::array<std::string_view, 11> qtOptionsWithValue{
    "session",       "display",      "geometry",    "platform",        "platformpluginpath",
    "platformtheme", "qwindowtitle", "qwindowicon", "qwindowgeometry", "style",
    "stylesheet"};

/// Qt takes its options with one dash or two, and a value behind them or behind "=".
bool isQtOption(std::string_view argument, bool& valueFollows) {
    argument.remove_prefix(argument.starts_with("--") ? 2 : 1);
    const std::size_t equals = argument.find('=');
    valueFollows = equals == std::string_view::npos;
    return std::ranges::find(qtOptionsWithValue, argument.substr(0, equals)) !=
           qtOptionsWithValue.end();
}

}  // namespace

Result<CommandLine> parsedCommandLine(const std::vector<std::string_view>& arguments) {
    CommandLine line;
    bool valueFollows = false;
    for (const std::string_view argument : arguments) {
        if (std::exchange(valueFollows, false))
            continue;
        if (argument == "-h" || argument == "--help")
            line.action = CommandLine::Action::help;
        else if (argument == "-v" || argument == "--version")
            line.action = CommandLine::Action::version;
        else if (argument == "--doctor")
            line.action = CommandLine::Action::doctor;
        else if (argument == "--json")
            line.isJson = true;
        else if (argument == "--quiet")
            line.isQuiet = true;
        else if (!argument.starts_with('-') || !isQtOption(argument, valueFollows))
            return Error{"unknown argument \"" + std::string(argument) + "\""};
    }
    if (line.isJson && line.action != CommandLine::Action::doctor)
        return Error{"--json goes with --doctor"};
    return line;
}

std::string_view commandLineHelp() {
    return R"(usage: nulo [--quiet | --doctor [--json] | --help | --version]
Push-to-talk dictation: hold Alt, press and hold Space, speak, and let go.

  --quiet        print nothing on standard output, where dictated words stand otherwise
  --doctor       look at everything that dictation needs, say what to do, and end: with 1 when it
                 cannot work; --json prints the same for programs
  -h, --help     print this and end
  -v, --version  print the version and end

Started while it runs, it opens the settings of the one that runs. The manual: man nulo
)";
}

}  // namespace nulo
