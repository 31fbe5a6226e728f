#include "pasting/PasteChordTable.h"

#include <gtest/gtest.h>

namespace nulo {
namespace {

// Ctrl+V in a terminal would reach the program inside, which pastes nothing or worse.
TEST(PasteChordTable, knowsTerminalsByClassOrInstanceInAnyCase) {
    EXPECT_EQ(pasteChordFor("gnome-terminal-server", "Gnome-terminal"), PasteChord::controlShiftV);
    EXPECT_EQ(pasteChordFor("renamed", "Alacritty"), PasteChord::controlShiftV);
    EXPECT_EQ(pasteChordFor("konsole", "unknown"), PasteChord::controlShiftV);
    EXPECT_EQ(pasteChordFor("org.gnome.Ptyxis", "org.gnome.Ptyxis"), PasteChord::controlShiftV);
    EXPECT_EQ(pasteChordFor("xterm", "XTerm"), PasteChord::shiftInsert);
    EXPECT_EQ(pasteChordFor("urxvt", "URxvt"), PasteChord::shiftInsert);
    // The class counts more than the instance, which is a user's to choose.
    EXPECT_EQ(pasteChordFor("kitty", "XTerm"), PasteChord::shiftInsert);
}

TEST(PasteChordTable, takesEverythingElseForAnOrdinaryProgram) {
    EXPECT_EQ(pasteChordFor("Navigator", "firefox"), PasteChord::controlV);
    EXPECT_EQ(pasteChordFor("", ""), PasteChord::controlV);
    EXPECT_EQ(pasteChordFor("stellarium", "kitty-pictures"), PasteChord::controlV);
}

}  // namespace
}  // namespace nulo
