#include "app/commands/CommandLine.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <utility>

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

using Action = CommandLine::Action;

constexpr std::array<std::pair<std::string_view, Action>, 10> actions{
    {{"-h", Action::help},
     {"--help", Action::help},
     {"-v", Action::version},
     {"--version", Action::version},
     {"--doctor", Action::doctor},
     {"--paste-last", Action::pasteLast},
     {"--copy-last", Action::copyLast},
     {"--history", Action::history},
     {"--forget", Action::forget},
     {"--retry", Action::retry}}};

/// The N of --paste-last=N; nothing when it is no number from 1 to 99.
std::optional<unsigned> numberBehind(std::string_view digits) {
    unsigned number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc() || end != digits.data() + digits.size() || number < 1 || number > 99)
        return std::nullopt;
    return number;
}

/// Whether the argument says what to do, which it then puts into `line`.
bool takeAction(std::string_view argument, CommandLine& line) {
    const std::size_t equals = argument.find('=');
    const auto found = std::ranges::find(actions, argument.substr(0, equals),
                                         &decltype(actions)::value_type::first);
    if (found == actions.end())
        return false;
    if (equals != std::string_view::npos) {
        const auto number = numberBehind(argument.substr(equals + 1));
        if (!number || (found->second != Action::pasteLast && found->second != Action::copyLast))
            return false;
        line.back = *number;
    }
    line.action = found->second;
    return true;
}

}  // namespace

Result<CommandLine> parsedCommandLine(const std::vector<std::string_view>& arguments) {
    CommandLine line;
    bool valueFollows = false;
    for (const std::string_view argument : arguments) {
        if (std::exchange(valueFollows, false))
            continue;
        if (takeAction(argument, line))
            continue;
        if (argument == "--json")
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
       nulo --paste-last[=N] | --copy-last[=N] | --retry | --history | --forget
Push-to-talk dictation: hold Alt, press and hold Space, speak, and let go.

  --quiet        print nothing on standard output, where dictated words stand otherwise
  --doctor       look at everything that dictation needs, say what to do, and end: with 1 when it
                 cannot work; --json prints the same for programs
  -h, --help     print this and end
  -v, --version  print the version and end

For a terminal, or a shortcut of the desktop's:
  --paste-last   have the Nulo that runs paste the last text once more; with =2 the one before it,
                 up to the tenth
  --copy-last    the same, on the clipboard only
  --retry        have it send the newest take that failed and was kept, and put its text on the
                 clipboard
  --history      print the texts that were kept
  --forget       remove all texts and takes that were kept

Started while it runs, it opens the settings of the one that runs. The manual: man nulo
)";
}

}  // namespace nulo
