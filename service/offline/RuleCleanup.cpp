#include "service/offline/RuleCleanup.h"

#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <array>

namespace nulo::service {
namespace {

using icu::UnicodeString;

bool isWordCharacter(UChar32 character) {
    return u_isalnum(character) || (U_GET_GC_MASK(character) & U_GC_M_MASK) != 0;
}

/// A run without white space: punctuation, core, punctuation. The core starts and ends with a
/// letter or a digit and is empty in a run of punctuation alone.
struct Token {
    UnicodeString gap;  // what separates it from the token before: nothing, a space or line feeds
    UnicodeString before;
    UnicodeString core;
    UnicodeString after;

    UnicodeString folded() const { return UnicodeString(core).foldCase(); }
    std::string foldedUtf8() const {
        std::string utf8;
        return folded().toUTF8String(utf8);
    }
};

Token tokenOf(const UnicodeString& run, const UnicodeString& gap) {
    int32_t start = 0;
    int32_t end = run.length();
    while (start < end && !isWordCharacter(run.char32At(start)))
        start = run.moveIndex32(start, 1);
    while (end > start && !isWordCharacter(run.char32At(run.moveIndex32(end, -1))))
        end = run.moveIndex32(end, -1);
    return {gap, run.tempSubStringBetween(0, start), run.tempSubStringBetween(start, end),
            run.tempSubStringBetween(end)};
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

/// "UM" and "HMM" in capitals are abbreviations; "mm" is a unit; "er", "eu" and "hum" are words.
bool isHesitation(const Token& token) {
    static constexpr std::array sounds = {"euh", "heu", "uh", "um", "uhm", "erm", "hm", "mh"};
    if (token.core.length() < 2 ||
        token.core == UnicodeString(token.core).toUpper(icu::Locale::getRoot()))
        return false;
    std::string once = token.foldedUtf8();  // drawn out as it may be
    once.erase(std::unique(once.begin(), once.end()), once.end());
    if (once == "m")
        return token.core.length() > 2;
    return std::find(sounds.begin(), sounds.end(), once) != sounds.end();
}

/// Whether the same word twice in a row may be meant.
bool doublesOnPurpose(const Token& token) {
    static constexpr std::array words = {
        "nous",     "vous",    "très",   "trop",   "bien", "non",  "oui",  "si",     "tout",
        "un",       "deux",    "trois",  "quatre", "cinq", "six",  "sept", "huit",   "neuf",
        "dix",      "zéro",    "vingt",  "cent",   "had",  "that", "very", "really", "so",
        "no",       "yes",     "bye",    "many",   "much", "more", "one",  "two",    "three",
        "four",     "five",    "seven",  "eight",  "nine", "ten",  "zero", "oh",     "hundred",
        "thousand", "million", "double", "ha",     "ah",
    };
    if (u_isdigit(token.core.char32At(0)))
        return true;
    const std::string word = token.foldedUtf8();
    // One letter is a letter being spelled, but for the words of one letter.
    if (token.core.countChar32() == 1)
        return word != "a" && word != "i" && word != "à" && word != "y";
    return std::find(words.begin(), words.end(), word) != words.end();
}

bool endsSentence(const UnicodeString& punctuation) {
    for (int32_t i = 0; i < punctuation.length(); ++i)
        if (UnicodeString(u".!?\u2026").indexOf(punctuation.charAt(i)) >= 0)
            return true;
    return false;
}

/// A stop after an initial or an abbreviation ends no sentence.
bool isAbbreviation(const Token& token) {
    static constexpr std::array words = {"etc", "cf", "vs", "mr", "mrs", "ms", "dr", "st", "env"};
    if (token.after.charAt(0) != '.')
        return false;
    const std::string word = token.foldedUtf8();
    return token.core.countChar32() == 1 || token.core.indexOf('.') >= 0 ||
           std::find(words.begin(), words.end(), word) != words.end();
}

/// Addresses, paths, versions and the like are not to be touched.
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

void capitalise(Token& token) {
    const UChar32 first = token.core.char32At(0);
    const bool mixedCase =
        token.core.compareBetween(U16_LENGTH(first), token.core.length(),
                                  UnicodeString(token.core).toLower(icu::Locale::getRoot()),
                                  U16_LENGTH(first), token.core.length()) != 0;
    if (!mixedCase && isPlainWord(token))
        token.core.replace(0, U16_LENGTH(first), UnicodeString(u_toupper(first)));
}

bool isEnglishI(const Token& token) {
    static constexpr std::array forms = {"i", "i'm", "i'll", "i've", "i'd"};
    if (token.core.charAt(0) != 'i' || !isPlainWord(token))
        return false;
    std::string word;
    token.folded().findAndReplace(u"\u2019", u"'").toUTF8String(word);
    return std::find(forms.begin(), forms.end(), word) != forms.end();
}

std::vector<Token> withoutStammer(std::vector<Token> tokens) {
    std::vector<Token> kept;
    UnicodeString pendingGap;
    for (Token& token : tokens) {
        if (isHesitation(token)) {
            const bool bare =
                !kept.empty() && !kept.back().core.isEmpty() && kept.back().after.isEmpty();
            if (bare && endsSentence(token.after))
                kept.back().after = token.after;
            if (token.gap.length() > pendingGap.length() || token.gap.indexOf('\n') >= 0)
                pendingGap = token.gap;
            continue;
        }
        if (pendingGap.indexOf('\n') >= 0)
            token.gap = pendingGap;
        pendingGap.remove();
        const bool repeated = !kept.empty() && !token.core.isEmpty() && token.before.isEmpty() &&
                              kept.back().after.isEmpty() && token.gap.indexOf('\n') < 0 &&
                              kept.back().folded() == token.folded() && !doublesOnPurpose(token);
        if (repeated)
            kept.back().after = token.after;
        else
            kept.push_back(std::move(token));
    }
    if (!kept.empty())
        kept.front().gap.remove();
    return kept;
}

void setSentences(std::vector<Token>& tokens) {
    bool atStart = true;
    for (Token& token : tokens) {
        if (!token.core.isEmpty() && (atStart || isEnglishI(token)))
            capitalise(token);
        if (!token.core.isEmpty())
            atStart = false;
        if (endsSentence(token.after) && !isAbbreviation(token))
            atStart = true;
        if (token.core.isEmpty() && endsSentence(token.before))
            atStart = true;
    }
    if (tokens.empty())
        return;
    Token& last = tokens.back();
    if (isPlainWord(last) && last.after.isEmpty())
        last.after = ".";
}

}  // namespace

std::string cleanedUp(std::string_view utf8) {
    const auto text = UnicodeString::fromUTF8({utf8.data(), static_cast<int32_t>(utf8.size())});
    auto tokens = withoutStammer(tokensOf(text));
    setSentences(tokens);
    UnicodeString result;
    for (const Token& token : tokens)
        result.append(token.gap).append(token.before).append(token.core).append(token.after);
    std::string cleaned;
    return result.toUTF8String(cleaned);
}

std::vector<std::string_view> wordFragments(std::string_view utf8) {
    std::vector<std::string_view> fragments;
    const auto isSpace = [](char character) { return character == ' ' || character == '\n'; };
    for (std::size_t start = 0; start < utf8.size();) {
        std::size_t end = start;
        while (end < utf8.size() && isSpace(utf8[end]))
            ++end;
        while (end < utf8.size() && !isSpace(utf8[end]))
            ++end;
        fragments.push_back(utf8.substr(start, end - start));
        start = end;
    }
    return fragments;
}

Result<Cleanup::Stream, Failure> RuleCleanup::start(CleanupRequest request, const StillWanted&) {
    return Stream([cleaned = cleanedUp(request.text)](const Fragment& onFragment) {
        for (const std::string_view fragment : wordFragments(cleaned))
            if (!onFragment(fragment))
                return false;
        return true;
    });
}

}  // namespace nulo::service
