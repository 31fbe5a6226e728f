#pragma once

#include <vector>

#include "service/offline/SpokenTokens.h"

namespace nulo::service {

/// Puts marks and line feeds in place of their names ("virgule", "à la ligne", in English "comma",
/// "new line"…), which are then no longer words that can be said. Pure.
void setSpokenPunctuation(std::vector<Token>& tokens, bool isFrench);

}  // namespace nulo::service
