#include "service/offline/FrenchText.h"

#include <unicode/uchar.h>

#include <algorithm>
#include <array>

#include "base/Ascii.h"

namespace nulo::service {

using icu::UnicodeString;

namespace {

template <std::size_t count>
bool isOneOf(const std::array<const char*, count>& words, const std::string& word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

/// Words that neighbouring languages do not have.
constexpr std::array french = {
    "je",   "nous", "vous",  "elle",  "ils",   "elles", "est",   "sont",   "suis",  "sommes",
    "les",  "des",  "du",    "une",   "au",    "aux",   "dans",  "pour",   "avec",  "sans",
    "pas",  "qui",  "mais",  "où",    "très",  "ça",    "cette", "ces",    "et",    "être",
    "fait", "plus", "leur",  "alors", "aussi", "tout",  "chez",  "quand",  "c'est", "j'ai",
    "ai",   "ont",  "êtes",  "bien",  "ne",    "oui",   "votre", "notre",  "à",     "c'était",
    "donc", "peut", "faire", "va",    "faut",  "voilà", "merci", "bonjour"};
constexpr std::array foreign = {
    "the", "and", "of",   "is",  "that", "you",  "with", "this", "are", "was",  "to",    "for",
    "i",   "it",  "not",  "el",  "los",  "las",  "por",  "con",  "es",  "para", "muy",   "che",
    "di",  "il",  "sono", "per", "gli",  "non",  "der",  "die",  "das", "und",  "ist",   "nicht",
    "ich", "não", "uma",  "os",  "dos",  "como", "het",  "een",  "van", "più",  "della", "sei"};

/// Behind these the next sentence begins.
constexpr std::array joining = {"et",    "mais", "donc", "car", "que", "parce",
                                "alors", "bon",  "euh",  "heu", "hum", "ben"};
constexpr std::array subjects = {"je",    "tu",   "il",  "elle",  "on",   "nous",
                                 "vous",  "ils",  "ça",  "elles", "cela", "ce",
                                 "c'est", "j'ai", "y'a", "euh",   "heu",  "c'était"};

bool startsSentence(const std::vector<Token>& tokens, std::size_t at) {
    return at == 0 || tokens[at].gap.indexOf('\n') >= 0 || endsSentence(tokens[at - 1].after) ||
           (tokens[at - 1].core.isEmpty() && endsSentence(tokens[at - 1].before));
}

/// The word that comes next in the same breath; empty when there is a break.
std::string wordAfter(const std::vector<Token>& tokens, std::size_t at) {
    const bool joins = at + 1 < tokens.size() && tokens[at].after.isEmpty();
    return joins ? tokens[at + 1].foldedUtf8() : std::string();
}

/// A "ben" that is written small where capitals are used is no name; after "eh" or "de", and before
/// an answer, it is meant.
bool isBen(const std::vector<Token>& tokens, std::size_t at) {
    static constexpr std::array before = {"eh", "ah", "bah", "hé",  "oh", "de",  "du",
                                          "le", "un", "les", "des", "ce", "mais"};
    static constexpr std::array after = {"oui", "non", "si", "voilà", "tiens", "dis"};
    return tokens[at].core == u"ben" && !isQuoted(tokens[at]) &&
           (at == 0 || !isOneOf(before, tokens[at - 1].foldedUtf8())) &&
           !isOneOf(after, wordAfter(tokens, at)) && !endsSentence(tokens[at].after) &&
           at + 1 < tokens.size();
}

/// Whether two tokens are a phrase that only joins what is said: at the start of a sentence, after
/// a comma or a conjunction, and followed by a subject or a comma.
bool isConnector(const std::vector<Token>& tokens, std::size_t at, const char* first,
                 const char* second) {
    if (at + 2 >= tokens.size() || tokens[at].foldedUtf8() != first ||
        tokens[at + 1].foldedUtf8() != second || !tokens[at].after.isEmpty() ||
        !tokens[at].before.isEmpty() || !tokens[at + 1].before.isEmpty())
        return false;
    const UnicodeString& end = tokens[at + 1].after;
    const bool goesOn =
        end == u"," || (end.isEmpty() && isOneOf(subjects, tokens[at + 2].foldedUtf8()));
    return goesOn &&
           (startsSentence(tokens, at) || tokens[at - 1].after == u"," ||
            (tokens[at - 1].after.isEmpty() && isOneOf(joining, tokens[at - 1].foldedUtf8())));
}

/// Whether the phrase stands in the prompt in quotation marks.
bool names(const std::string& prompt, const char* phrase) {
    const auto text = UnicodeString::fromUTF8(prompt).foldCase();
    const auto words = UnicodeString::fromUTF8(phrase);
    const UnicodeString marks(u"\"'\u00AB\u00BB\u2018\u2019\u201C\u201D");
    for (int32_t at = text.indexOf(words); at >= 0; at = text.indexOf(words, at + 1)) {
        int32_t before = at - 1;
        int32_t after = at + words.length();
        while (before >= 0 && u_isUWhiteSpace(text.charAt(before)))
            --before;
        while (after < text.length() && u_isUWhiteSpace(text.charAt(after)))
            ++after;
        if (before >= 0 && after < text.length() && marks.indexOf(text.charAt(before)) >= 0 &&
            marks.indexOf(text.charAt(after)) >= 0)
            return true;
    }
    return false;
}

constexpr char16_t noBreak = 0x00A0;
constexpr char16_t narrowNoBreak = 0x202F;

bool isHighMark(UChar32 character) {
    return UnicodeString(u":;!?").indexOf(character) >= 0;
}

/// Where in a run of nothing but punctuation the first mark stands that wants a space; -1 when
/// there is none, or the run is a smiley or the like.
int32_t highMarkIn(const UnicodeString& run) {
    int32_t found = -1;
    for (int32_t i = 0; i < run.length(); ++i) {
        if (UnicodeString(u".,:;!?\u2026\u00BB\")\u201D%\u20AC\u00A0").indexOf(run.charAt(i)) < 0)
            return -1;
        if (found < 0 && isHighMark(run.charAt(i)))
            found = i;
    }
    const bool smiles = found >= 0 && run.charAt(found) != '!' && run.charAt(found) != '?' &&
                        run.indexOf(')', found) >= 0;
    return smiles ? -1 : found;
}

UnicodeString spaceBefore(char16_t mark) {
    return {mark == ':' || mark == u'\u00BB' ? noBreak : narrowNoBreak};
}

}  // namespace

bool isFrenchCode(std::string_view language) {
    return asciiLower(language.substr(0, 2)) == "fr" &&
           (language.size() == 2 || language[2] == '-' || language[2] == '_');
}

bool soundsFrench(const std::vector<Token>& tokens) {
    std::size_t words = 0;
    std::size_t ours = 0;
    std::size_t theirs = 0;
    for (const Token& token : tokens) {
        const std::string word = token.foldedUtf8();
        words += !word.empty();
        ours += isOneOf(french, word);
        theirs += isOneOf(foreign, word);
    }
    return ours >= 2 && ours > 2 * theirs && 6 * ours >= words;
}

bool isQuoted(const Token& token) {
    for (int32_t i = 0; i < token.before.length(); ++i)
        if (UnicodeString(u"\"'\u00AB\u2018\u201C\u201E").indexOf(token.before.charAt(i)) >= 0)
            return true;
    return false;
}

void removeFrenchTics(std::vector<Token>& tokens, const std::string& prompt) {
    const bool hasCapitals = std::any_of(tokens.begin(), tokens.end(), [](const Token& token) {
        return !token.core.isEmpty() && u_isupper(token.core.char32At(0));
    });
    std::vector<std::pair<const char*, const char*>> connectors;
    if (names(prompt, "du coup"))
        connectors.emplace_back("du", "coup");
    if (names(prompt, "en fait"))
        connectors.emplace_back("en", "fait");
    std::vector<Token> kept;
    UnicodeString lineFeeds;  // of what was removed just before
    std::size_t at = 0;
    while (at < tokens.size()) {
        const bool joins = std::any_of(
            connectors.begin(), connectors.end(),
            [&](const auto& words) { return isConnector(tokens, at, words.first, words.second); });
        const std::size_t count = joins ? 2 : hasCapitals && isBen(tokens, at) ? 1 : 0;
        if (count > 0 && tokens[at].gap.indexOf('\n') >= 0)
            lineFeeds = tokens[at].gap;
        if (count == 0) {
            kept.push_back(tokens[at]);
            if (!lineFeeds.isEmpty())
                kept.back().gap = lineFeeds;
            lineFeeds.remove();
        }
        at += count ? count : 1;
    }
    if (!kept.empty() && kept.front().gap.indexOf('\n') < 0)
        kept.front().gap.remove();
    tokens = std::move(kept);
}

void setFrenchSpaces(std::vector<Token>& tokens) {
    for (std::size_t at = 0; at < tokens.size(); ++at) {
        Token& token = tokens[at];
        const bool alone = token.core.isEmpty();
        UnicodeString& run = alone ? token.before : token.after;
        const bool breaks = at == 0 || token.gap.indexOf('\n') >= 0;
        // "»" first, which moves what stands behind it.
        if (const int32_t mark = run.indexOf(u'\u00BB'); mark > 0 || (mark == 0 && !alone))
            run.insert(mark, UnicodeString(noBreak));
        else if (mark == 0 && !breaks)
            token.gap = UnicodeString(noBreak);
        const int32_t mark = alone || isPlainWord(token) ? highMarkIn(run) : -1;
        if (mark > 0 || (mark == 0 && !alone))
            run.insert(mark, spaceBefore(run.charAt(mark)));
        else if (mark == 0 && !breaks)
            token.gap = spaceBefore(run.charAt(mark));
        const bool opens = token.before.endsWith(UnicodeString(u'\u00AB'));
        if (opens && !alone)
            token.before.append(UnicodeString(noBreak));
        else if (opens && at + 1 < tokens.size() && tokens[at + 1].gap.indexOf('\n') < 0)
            tokens[at + 1].gap = UnicodeString(noBreak);
    }
}

}  // namespace nulo::service
