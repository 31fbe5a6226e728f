#pragma once

#include <unicode/unistr.h>

#include <string>
#include <string_view>
#include <vector>

/// What the rules of the clean-up work on. Everything here is pure.
namespace nulo::service {

/// A run without white space: punctuation, core, punctuation. The core starts and ends with a
/// letter or a digit and is empty in a run of punctuation alone.
struct Token {
    icu::UnicodeString
        gap;  // what separates it from the token before: nothing, a space or line feeds
    icu::UnicodeString before;
    icu::UnicodeString core;
    icu::UnicodeString after;

    icu::UnicodeString folded() const { return icu::UnicodeString(core).foldCase(); }
    /// The same in UTF-8, every apostrophe a straight one.
    std::string foldedUtf8() const;
};

std::vector<Token> tokensOf(const icu::UnicodeString& text);

/// The text of the tokens in UTF-8.
std::string joined(const std::vector<Token>& tokens);

/// Letters, digits and what belongs to them.
bool isWordCharacter(UChar32 character);

/// No address, path, version or the like, which are not to be touched.
bool isPlainWord(const Token& token);

/// Whether a sentence may end behind such punctuation.
bool endsSentence(const icu::UnicodeString& punctuation);

}  // namespace nulo::service
