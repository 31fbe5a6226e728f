#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "service/Cleanup.h"

namespace nulo::service {

/// English and French by fixed rules: hesitations ("euh", "heu", "um", "uh"…) and stammered words
/// go, sentences start with a capital and end with a stop. Every other word stays as it was; words
/// that are doubled on purpose ("nous nous", "had had", numbers) stay too. Empty for white space.
std::string cleanedUp(std::string_view utf8);

/// The text cut before each white space: concatenated it is the text again.
std::vector<std::string_view> wordFragments(std::string_view utf8);

/// cleanedUp(), word by word, whatever the prompt asks for.
class RuleCleanup final : public Cleanup {
  public:
    Result<Stream, Failure> start(CleanupRequest request, const StillWanted& stillWanted) override;
};

}  // namespace nulo::service
