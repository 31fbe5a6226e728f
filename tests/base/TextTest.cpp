#include "base/Text.h"

#include <gtest/gtest.h>

namespace nulo {
namespace {

TEST(Text, countsWhatAPersonWouldCount) {
    for (const auto& [text, count] : {std::pair{"", 0u},
                                      {"déjà", 4},
                                      {"e\u0301te\u0301", 3},  // combining accents
                                      {"\U0001F469\u200D\U0001F4BB\U0001F1EB\U0001F1F7", 2},
                                      {"a\r\nb", 3}})
        EXPECT_EQ(characterCount(text), count) << text;
}

TEST(Text, trimsUnicodeWhiteSpaceOnly) {
    EXPECT_EQ(trimmed(" \t\r\n\u00A0\u2003\u2028 un mot \u3000\n"), "un mot");
    EXPECT_EQ(trimmed(" \n "), "");
    EXPECT_EQ(trimmed("\u200Bx"), "\u200Bx");  // a zero-width space is no white space
}

// What a server says must neither drive the terminal nor forge a line of the log.
TEST(Text, showsWhatATerminalWouldActOn) {
    EXPECT_EQ(visible("a\x1B[2J\nb\x7F\u0085\u202Eé\xFF\r\n"), "a␛[2J␊b<7F><85><202E>é\uFFFD");
}

TEST(Text, tellsMalformedFromUnfinishedUtf8) {
    const std::string text = "h\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80";
    EXPECT_TRUE(isValidUtf8(text));
    for (const char* bad : {"\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\x80", "a\xE2\x82"})
        EXPECT_FALSE(isValidUtf8(bad)) << bad;
    for (std::size_t cut = 0; cut <= 4; ++cut)
        EXPECT_EQ(completeUtf8Length(text.substr(0, 8 + cut)), cut < 4 ? 8u : 12u);
    // Bytes that can never become a character are not held back.
    for (const std::string bad : {"a\xFF", "a\xE0\x80", "\x82\xAC"})
        EXPECT_EQ(completeUtf8Length(bad), bad.size());
}

}  // namespace
}  // namespace nulo
