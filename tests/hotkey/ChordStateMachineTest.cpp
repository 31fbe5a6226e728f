#include "hotkey/ChordStateMachine.h"

#include <gtest/gtest.h>

#include <string>

namespace nulo {
namespace {

// One letter an event: O/o Option down/up (with others unchanged), S/s Space, K/k another key,
// F another modifier. Answers: '.' pass, 'x' swallow, '+' swallow and start, '-' swallow and stop,
// 'p' Option-down posted and pass.
std::string reactionsTo(const std::string& events) {
    ChordStateMachine machine;
    bool option = false;
    std::string answers;
    for (const char letter : events) {
        KeyEvent event;
        if (letter == 'O' || letter == 'o')
            option = letter == 'O';
        if (std::string("OoF").find(letter) != std::string::npos)
            event = {.type = KeyEvent::Type::flagsChanged, .optionSet = option};
        else
            event = {.type = std::isupper(letter) ? KeyEvent::Type::keyDown : KeyEvent::Type::keyUp,
                     .isSpace = letter == 'S' || letter == 's'};
        const auto [fate, report, posted] = machine.handle(event);
        answers += report == ChordStateMachine::Report::recordStart  ? '+'
                   : report == ChordStateMachine::Report::recordStop ? '-'
                   : posted                                          ? 'p'
                   : fate == EventFate::swallow                      ? 'x'
                                                                     : '.';
    }
    return answers;
}

// Each row of the table from each state: a fate or a report that is wrong shows as one letter.
TEST(ChordStateMachine, followsItsTable) {
    const struct {
        const char *what, *events, *reactions;
    } rows[] = {
        {"idle passes everything but Option", "SskKFo", "......"},
        {"Option alone is hidden whole", "OoOo", "xxxx"},
        {"Option and another key", "OKkKo", "xp..."},
        {"armed: releases and other modifiers change nothing", "OkFsSso", "x...+-."},
        {"repeats start nothing", "OSSSSs", "x+xxx-"},
        {"Option released first: Space's release passes", "OSosSs", "x+-..."},
        {"Space released first: Option's release passes", "OSsoOo", "x+-.xx"},
        {"no second start while Option stays down", "OSsSs", "x+-.."},
        {"recording passes other keys and modifiers", "OSKkFSs", "x+...x-"},
        {"Space before Option", "SOso", ".x.x"},
        {"a source that knows the chord only, told twice", "OSsosoOSOSso", "x+-...x+.x-."},
        {"a modifier that finds Option down arms again", "OKFSs", "xpx+-"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(reactionsTo(row.events), row.reactions) << row.what << ": " << row.events;
}

}  // namespace
}  // namespace nulo
