#include "service/offline/MeantWords.h"

#include <algorithm>
#include <array>

#include "base/Text.h"

namespace nulo::service {
namespace {

constexpr std::array sounds = {
    "applause",  "applaudissement", "bruit",       "cheering", "cough",   "crowd",     "exhale",
    "inaudible", "inhale",          "laugh",       "music",    "musique", "noise",     "rire",
    "sigh",      "silence",         "soupir",      "static",   "toux",    "bip",       "beep",
    "blank",     "éternuement",     "gémissement", "cri ",     "cris",    "ronflement"};

constexpr std::array filmEndings = {"sous-titr",
                                    "subtitles by",
                                    "subtitled by",
                                    "captions by",
                                    "captioning by",
                                    "transcribed by",
                                    "thanks for watching",
                                    "thank you for watching",
                                    "please subscribe",
                                    "merci d'avoir regardé",
                                    "merci d’avoir regardé",
                                    "abonnez-vous",
                                    "n'oubliez pas de vous abonner",
                                    "n’oubliez pas de vous abonner"};

/// In lower case, as far as ASCII goes.
std::string lowered(std::string_view text) {
    std::string low(text);
    std::transform(low.begin(), low.end(), low.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return low;
}

bool namesASound(std::string_view inBrackets) {
    const std::string low = lowered(inBrackets);
    return std::any_of(sounds.begin(), sounds.end(),
                       [&](const char* sound) { return low.find(sound) != std::string::npos; });
}

struct Mark {
    std::string_view open, close;
    bool mayBeMeant;
};
constexpr std::array marks = {Mark{"[", "]", false}, Mark{"(", ")", true}, Mark{"*", "*", false},
                              Mark{"♪", "♪", false}, Mark{"♫", "♫", false}};
/// A longer stretch between two signs is no mark, but text between signs that do not belong
/// together.
constexpr std::size_t longestMark = 60;

/// The length of the mark with which the text begins; 0 for none.
std::size_t markLength(std::string_view text) {
    for (const auto& [open, close, mayBeMeant] : marks) {
        if (!text.starts_with(open))
            continue;
        const bool isNote = open == close && open != "*";
        const std::size_t end = text.find(close, open.size());
        if (end == std::string_view::npos || end > longestMark)
            return isNote ? open.size() : 0;
        const std::string_view inside = text.substr(open.size(), end - open.size());
        const bool isProduct = open == "*" && (inside.empty() || inside.front() == ' ');  // 2 * 3
        if (isProduct || (mayBeMeant && !namesASound(inside)))
            return 0;
        return end + close.size();
    }
    return 0;
}

bool isWithinCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

}  // namespace

std::string withoutMarks(std::string_view text) {
    std::string kept;
    while (!text.empty()) {
        if (const std::size_t length = markLength(text); length > 0) {
            text.remove_prefix(length);
            // One of the two blanks around it goes too.
            if ((kept.empty() || kept.back() == ' ') && text.starts_with(' '))
                text.remove_prefix(1);
            continue;
        }
        kept += text.front();
        text.remove_prefix(1);
    }
    return trimmed(kept);
}

std::string withoutEndlessRepetition(std::string_view text) {
    constexpr std::size_t longestStretch = 120;
    constexpr std::size_t leastTimes = 5;
    constexpr std::size_t leastLength = 60;
    std::string kept;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t stretch = 0;
        std::size_t run = 0;
        for (std::size_t length = 1; length <= longestStretch && at + length < text.size();
             ++length) {
            if (isWithinCharacter(text[at]) || isWithinCharacter(text[at + length]))
                continue;
            const auto rest = text.substr(at);
            const auto shifted = text.substr(at + length);
            const auto [end, ignored] = std::mismatch(shifted.begin(), shifted.end(), rest.begin());
            const auto all = length + static_cast<std::size_t>(end - shifted.begin());
            if (all >= std::max(leastTimes * length, leastLength)) {
                stretch = length;
                run = all;
                break;
            }
        }
        if (stretch == 0) {
            kept += text[at++];
            continue;
        }
        while (at + run < text.size() && isWithinCharacter(text[at + run]))
            --run;
        // Its end leads over to what follows.
        kept += text.substr(at, stretch);
        kept += text.substr(at + run - run % stretch, run % stretch);
        at += run;
    }
    return trimmed(kept);
}

bool isFilmEnding(std::string_view text) {
    const std::string low = lowered(trimmed(text));
    const bool oneSentence =
        low.find_first_of(".!?") >= low.size() - std::min<std::size_t>(low.size(), 4);
    return low.size() < 100 && oneSentence &&
           std::any_of(filmEndings.begin(), filmEndings.end(),
                       [&](const char* ending) { return low.starts_with(ending); });
}

}  // namespace nulo::service
