#include "hotkey/Chord.h"

#include <gtest/gtest.h>

namespace nulo {
namespace {

// A chord that is taken for another, or by which nobody could type; a refusal that does not name
// the value, or is more than one line.
TEST(Chord, isReadFromWhatPeopleWrite) {
    const struct {
        std::string text, name, symbol;
    } accepted[] = {
        {"Super+Space", "Super+Space", "space"},
        {"Option+Space", "Alt+Space", "space"},
        {" alt + ctrl+d ", "Ctrl+Alt+D", "d"},
        {"Ctrl+Alt+Shift+Super+0", "Ctrl+Alt+Shift+Super+0", "0"},
        {"SHIFT+f24", "Shift+F24", "F24"},
        {"ctrl+scrolllock", "Ctrl+ScrollLock", "Scroll_Lock"},
    };
    for (const auto& row : accepted) {
        const auto chord = parsedChord(row.text);
        ASSERT_TRUE(chord) << chord.error().description;
        EXPECT_EQ(chord.value().name(), row.name);
        EXPECT_EQ(chord.value().symbol, row.symbol);
    }
    EXPECT_EQ(parsedChord("alt+space").value().title(), "Option+Space");
    const std::string longValue = "Ctrl+" + std::string(60, 'x');
    const std::pair<std::string, std::string> refused[] = {
        {"", "\"\" is refused: a key's name is missing"},
        {"Ctrl++D", "\"Ctrl++D\" is refused: a key's name is missing"},
        {"Space", "\"Space\" is refused: it has no modifier (Ctrl, Alt, Shift or Super)"},
        {"Ctrl+Alt", "\"Ctrl+Alt\" is refused: it has no key besides modifiers"},
        {"Ctrl+Ctrl+D", "\"Ctrl+Ctrl+D\" is refused: it has the same modifier twice"},
        {"Ctrl+D+F", "\"Ctrl+D+F\" is refused: it has two keys besides modifiers"},
        {"Shift+D", "\"Shift+D\" is refused: Shift and that key are for typing"},
        {"Shift+Insert", "\"Shift+Insert\" is refused: the text is pasted by it"},
        {"ctrl+v", "\"ctrl+v\" is refused: the text is pasted by it"},
        {"Alt+F25", "\"Alt+F25\" is refused: \"F25\" is no key that it can have"},
        {"Alt+\n", "\"Alt+\" is refused: a key's name is missing"},
        {"é+D", "\"é+D\" is refused: \"é\" is no key that it can have"},
        {longValue, "\"" + longValue.substr(0, 64) + "…\" is refused: it is too long"},
    };
    for (const auto& [text, reason] : refused) {
        const auto chord = parsedChord(text);
        EXPECT_EQ(chord ? "accepted" : chord.error().description, "the shortcut " + reason);
    }
}

}  // namespace
}  // namespace nulo
