#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "service/offline/SpokenTokens.h"

/// What the clean-up knows of French. Everything here is pure.
namespace nulo::service {

/// "fr", "fr-CA".
bool isFrenchCode(std::string_view language);

/// Whether a text's small words are those of French. Of two or three words nobody can tell: false.
bool soundsFrench(const std::vector<Token>& tokens);

/// Whether an opening quotation mark stands before the word, as where it is spoken about.
bool isQuoted(const Token& token);

/// Removes "ben" where it is neither a name nor an answer, and of "du coup" and "en fait" what the
/// prompt names in quotation marks, where they do no more than join sentences.
void removeFrenchTics(std::vector<Token>& tokens, const std::string& prompt);

/// Narrow no-break spaces before ; ! ?, no-break spaces before : and inside « ».
void setFrenchSpaces(std::vector<Token>& tokens);

}  // namespace nulo::service
