#include "service/offline/RuleCleanup.h"

#include <unicode/locid.h>
#include <unicode/uchar.h>

#include <algorithm>
#include <array>

#include "service/offline/FrenchText.h"
#include "service/offline/SpokenPunctuation.h"
#include "service/offline/SpokenTokens.h"

namespace nulo::service {
namespace {

using icu::UnicodeString;

/// "UM" and "HMM" in capitals are abbreviations; "mm" is a unit; "er" and "eu" are words, and
/// "hum" is one in English. What stands in quotation marks is spoken about.
bool isHesitation(const Token& token, bool isFrench) {
    static constexpr std::array sounds = {"euh", "heu", "uh", "um", "uhm", "erm", "hm", "mh"};
    if (token.core.length() < 2 || isQuoted(token) ||
        token.core == UnicodeString(token.core).toUpper(icu::Locale::getRoot()))
        return false;
    std::string once = token.foldedUtf8();  // drawn out as it may be
    once.erase(std::unique(once.begin(), once.end()), once.end());
    if (once == "m")
        return token.core.length() > 2;
    if (once == "hum")
        return isFrench;
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

/// A stop after an initial or an abbreviation ends no sentence.
bool isAbbreviation(const Token& token) {
    static constexpr std::array words = {"etc", "cf", "vs", "mr", "mrs", "ms", "dr", "st", "env"};
    if (token.after.charAt(0) != '.')
        return false;
    const std::string word = token.foldedUtf8();
    return token.core.countChar32() == 1 || token.core.indexOf('.') >= 0 ||
           std::find(words.begin(), words.end(), word) != words.end();
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
    const std::string word = token.foldedUtf8();
    return std::find(forms.begin(), forms.end(), word) != forms.end();
}

std::vector<Token> withoutStammer(std::vector<Token> tokens, bool isFrench) {
    std::vector<Token> kept;
    UnicodeString pendingGap;
    for (Token& token : tokens) {
        if (isHesitation(token, isFrench)) {
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

std::string cleanedUp(std::string_view utf8, const CleanupRules& rules) {
    auto tokens =
        tokensOf(UnicodeString::fromUTF8({utf8.data(), static_cast<int32_t>(utf8.size())}));
    const bool isFrench =
        rules.language.empty() ? soundsFrench(tokens) : isFrenchCode(rules.language);
    if (rules.spokenPunctuation)
        setSpokenPunctuation(tokens, isFrench);
    if (isFrench)
        removeFrenchTics(tokens, rules.prompt);
    tokens = withoutStammer(std::move(tokens), isFrench);
    setSentences(tokens);
    if (isFrench)
        setFrenchSpaces(tokens);
    return joined(tokens);
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
    CleanupRules rules{request.language, {}, m_spokenPunctuation};
    for (const ChatMessage& message : request.messages)
        if (message.role == "system")
            rules.prompt += message.content;
    return Stream([cleaned = cleanedUp(request.text, rules)](const Fragment& onFragment) {
        for (const std::string_view fragment : wordFragments(cleaned))
            if (!onFragment(fragment))
                return false;
        return true;
    });
}

}  // namespace nulo::service
