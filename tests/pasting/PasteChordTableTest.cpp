#include "pasting/PasteChordTable.h"

#include <gtest/gtest.h>

namespace nulo {
namespace {

// Ctrl+V in a terminal would reach the program inside, which pastes nothing or worse. The class
// counts more than the instance, which is a user's to choose.
TEST(PasteChordTable, knowsProgramsByClassThenInstanceInAnyCase) {
    EXPECT_EQ(pasteChordFor("renamed", "Alacritty"), PasteChord::controlShiftV);
    EXPECT_EQ(pasteChordFor("konsole", "unknown"), PasteChord::controlShiftV);
    EXPECT_EQ(pasteChordFor("kitty", "XTerm"), PasteChord::shiftInsert);
    EXPECT_EQ(pasteChordFor("stellarium", "kitty-pictures"), PasteChord::controlV);
}

}  // namespace
}  // namespace nulo
