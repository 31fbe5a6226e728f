#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "service/Cleanup.h"

namespace nulo::service {

/// What is known of a text beyond its words.
struct CleanupRules {
    std::string language = {};  // a code such as "fr"; empty: told by its words
    std::string prompt = {};    // what the user asks of the clean-up
    bool spokenPunctuation = false;
};

/// English and French by fixed rules: hesitations ("euh", "heu", "um", "uh"…) and stammered words
/// go, sentences start with a capital and end with a stop; in French "hum" and a "ben" that cannot
/// be a name go too, "du coup" and "en fait" where the prompt names them in quotation marks and
/// they join sentences, and the spaces before : ; ! ? and inside « » are set. Every other word
/// stays as it was; words that are doubled on purpose ("nous nous", "had had", numbers) stay too.
/// Empty for white space.
std::string cleanedUp(std::string_view utf8, const CleanupRules& rules = {});

/// The text cut before each white space: concatenated it is the text again.
std::vector<std::string_view> wordFragments(std::string_view utf8);

/// cleanedUp(), word by word, whatever else the prompt asks for.
class RuleCleanup final : public Cleanup {
  public:
    explicit RuleCleanup(bool spokenPunctuation = false) : m_spokenPunctuation(spokenPunctuation) {}

    Result<Stream, Failure> start(CleanupRequest request, const StillWanted& stillWanted) override;

  private:
    const bool m_spokenPunctuation;
};

}  // namespace nulo::service
