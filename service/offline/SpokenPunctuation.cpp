#include "service/offline/SpokenPunctuation.h"

#include <span>

namespace nulo::service {
namespace {

using icu::UnicodeString;

struct Mark {
    const char* said;  // folded, its words set apart by one space
    const char16_t* written;
};

// Longer names stand before those that they begin with.
constexpr Mark frenchMarks[] = {
    {"point d'interrogation", u"?"},
    {"point d'exclamation", u"!"},
    {"points de suspension", u"\u2026"},
    {"point virgule", u";"},
    {"point à la ligne", u".\n"},
    {"nouveau paragraphe", u"\n\n"},
    {"à la ligne", u"\n"},
    {"deux points", u":"},
    {"point final", u"."},
    {"point-virgule", u";"},
    {"virgule", u","},
    {"point", u"."},
};
constexpr Mark englishMarks[] = {
    {"exclamation mark", u"!"},
    {"exclamation point", u"!"},
    {"question mark", u"?"},
    {"new paragraph", u"\n\n"},
    {"new line", u"\n"},
    {"full stop", u"."},
    {"semicolon", u";"},
    {"colon", u":"},
    {"comma", u","},
    {"period", u"."},
};

/// How many tokens from there on say that name; 0 when they do not. Engines set commas and stops of
/// their own around it, which fall away with it.
std::size_t lengthOf(const char* said, std::span<const Token> tokens) {
    std::string rest = said;
    for (std::size_t count = 0; count < tokens.size() && tokens[count].before.isEmpty();) {
        const std::string word = tokens[count++].foldedUtf8();
        if (word.empty() || !rest.starts_with(word))
            return 0;
        rest.erase(0, word.size());
        if (rest.empty())
            return count;
        if (!rest.starts_with(' ') || !tokens[count - 1].after.isEmpty())
            return 0;
        rest.erase(0, 1);
    }
    return 0;
}

}  // namespace

void setSpokenPunctuation(std::vector<Token>& tokens, bool isFrench) {
    const std::span<const Mark> marks =
        isFrench ? std::span<const Mark>(frenchMarks) : std::span<const Mark>(englishMarks);
    std::vector<Token> kept;
    UnicodeString lineFeeds;
    for (std::size_t at = 0; at < tokens.size();) {
        std::size_t length = 0;
        for (const Mark& mark : marks) {
            length = lengthOf(mark.said, std::span(tokens).subspan(at));
            if (length == 0)
                continue;
            UnicodeString written(mark.written);
            const int32_t feed = written.indexOf('\n');
            if (feed >= 0)
                lineFeeds = UnicodeString(written, feed);
            written.truncate(feed >= 0 ? feed : written.length());
            if (!written.isEmpty() && !kept.empty()) {
                UnicodeString& after = kept.back().after;
                while (!after.isEmpty() &&
                       UnicodeString(u".,:;!?\u2026").indexOf(after.charAt(after.length() - 1)) >=
                           0)
                    after.truncate(after.length() - 1);
                after.append(written);
            }
            break;
        }
        if (length == 0) {
            kept.push_back(std::move(tokens[at]));
            if (!lineFeeds.isEmpty() && kept.size() > 1)
                kept.back().gap = lineFeeds;
            lineFeeds.remove();
        }
        at += length ? length : 1;
    }
    if (!kept.empty())
        kept.front().gap.remove();
    tokens = std::move(kept);
}

}  // namespace nulo::service
