#include "app/commands/Commands.h"

#include <cstdio>
#include <sstream>

#include "base/Clock.h"
#include "base/Print.h"
#include "base/Text.h"
#include "keeping/KeptTakes.h"
#include "keeping/TextHistory.h"

namespace nulo {
namespace {

using Action = CommandLine::Action;

int told(const Outcome& outcome, std::string_view success) {
    if (outcome) {
        printLine(success);
        return 0;
    }
    std::fputs(("nulo: " + outcome.error().description + ".\n").c_str(), stderr);
    return 1;
}

int printHistory(const TextHistory& history) {
    const TextHistory::Contents contents = history.read();
    for (const TextHistory::Text& text : contents.texts) {
        printLine(readableTime(text.time) + "  " + visible(text.mode));
        std::istringstream lines(text.text);
        for (std::string line; std::getline(lines, line);)
            printLine("    " + visible(line));
    }
    if (contents.unreadable > 0)
        std::fputs(
            ("nulo: " + std::to_string(contents.unreadable) + " of the texts cannot be read.\n")
                .c_str(),
            stderr);
    else if (contents.texts.empty())
        printLine(
            "No texts are kept. With history=true in ~/.config/nulo/defaults.ini, Nulo keeps those "
            "of the last 30 days.");
    return 0;
}

int forgetAll(const TextHistory& history, const KeptTakes& takes, const AskRunningNulo& ask) {
    const Outcome texts = history.clear();
    const Outcome sound = takes.clear();
    // A Nulo that runs has the last texts in memory; where none runs they are gone already.
    static_cast<void>(ask("Forget", std::nullopt));
    return told(texts ? sound : texts, "All texts and takes that were kept are removed.");
}

}  // namespace

int carryOut(const CommandLine& command, const std::filesystem::path& stateFolder,
             const AskRunningNulo& ask) {
    const TextHistory history(stateFolder, systemClock());
    switch (command.action) {
        case Action::pasteLast:
            return told(ask("PasteLast", command.back),
                        "The text is on the clipboard, and is being pasted.");
        case Action::copyLast:
            return told(ask("CopyLast", command.back), "The text is on the clipboard.");
        case Action::retry:
            return told(ask("Retry", std::nullopt),
                        "The take was understood: its text is on the clipboard.");
        case Action::history:
            return printHistory(history);
        case Action::forget:
            return forgetAll(history, KeptTakes(stateFolder, systemClock()), ask);
        default:
            return 2;  // not a command; the caller's bug
    }
}

}  // namespace nulo
