#include "service/offline/SpokenTokens.h"

#include <unicode/uchar.h>

#include <algorithm>

namespace nulo::service {

using icu::UnicodeString;

namespace {

Token tokenOf(const UnicodeString& run, const UnicodeString& gap) {
    int32_t start = 0;
    int32_t end = run.length();
    while (start < end && !isWordCharacter(run.char32At(start)))
        start = run.moveIndex32(start, 1);
    while (end > start && !isWordCharacter(run.char32At(run.moveIndex32(end, -1))))
        end = run.moveIndex32(end, -1);
    // Copies: a substring of ICU's may go on pointing into the text.
    return {gap, UnicodeString(run, 0, start), UnicodeString(run, start, end - start),
            UnicodeString(run, end)};
}

}  // namespace

std::string Token::foldedUtf8() const {
    std::string utf8;
    return folded().findAndReplace(u"\u2019", u"'").toUTF8String(utf8);
}

bool isWordCharacter(UChar32 character) {
    return u_isalnum(character) || (U_GET_GC_MASK(character) & U_GC_M_MASK) != 0;
}

std::vector<Token> tokensOf(const UnicodeString& text) {
    std::vector<Token> tokens;
    UnicodeString gap;
    for (int32_t i = 0; i < text.length();) {
        int32_t end = i;
        int lineFeeds = 0;
        while (end < text.length() && u_isUWhiteSpace(text.char32At(end))) {
            lineFeeds += text.char32At(end) == '\n';
            end = text.moveIndex32(end, 1);
        }
        if (lineFeeds > 0)
            gap = UnicodeString(std::min(lineFeeds, 2), UChar32('\n'), std::min(lineFeeds, 2));
        else
            gap = tokens.empty() ? u"" : u" ";
        i = end;
        while (end < text.length() && !u_isUWhiteSpace(text.char32At(end)))
            end = text.moveIndex32(end, 1);
        if (end > i)
            tokens.push_back(tokenOf(text.tempSubStringBetween(i, end), gap));
        i = end;
    }
    if (!tokens.empty())
        tokens.front().gap.remove();
    return tokens;
}

std::string joined(const std::vector<Token>& tokens) {
    UnicodeString text;
    for (const Token& token : tokens)
        text.append(token.gap).append(token.before).append(token.core).append(token.after);
    std::string utf8;
    return text.toUTF8String(utf8);
}

bool isPlainWord(const Token& token) {
    if (token.core.isEmpty() || token.before.indexOf('/') >= 0 || token.before.indexOf('.') >= 0)
        return false;
    for (int32_t i = 0; i < token.core.length(); i = token.core.moveIndex32(i, 1)) {
        const UChar32 character = token.core.char32At(i);
        if (!isWordCharacter(character) && UnicodeString(u"'\u2019-").indexOf(character) < 0)
            return false;
    }
    return true;
}

bool endsSentence(const UnicodeString& punctuation) {
    for (int32_t i = 0; i < punctuation.length(); ++i)
        if (UnicodeString(u".!?\u2026").indexOf(punctuation.charAt(i)) >= 0)
            return true;
    return false;
}

}  // namespace nulo::service
