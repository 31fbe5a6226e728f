#pragma once

#include <string>
#include <vector>

namespace nulo {

/// What was found out about one thing that dictation needs.
struct Finding {
    enum class Verdict {
        good,
        weak,    // dictation works, but not as well as it could
        broken,  // dictation cannot work
    };
    std::string name;  // "Microphone"
    Verdict verdict = Verdict::good;
    std::string text;    // what was found, in one line
    std::string advice;  // what to do about it, in one line; empty when there is nothing to do
};

/// For a person: one line each, with the advice behind it, and a last line with the outcome.
std::string asText(const std::vector<Finding>& findings);

/// For a program: {"canDictate": …, "findings": [{"name", "verdict", "text", "advice"}]}.
std::string asJson(const std::vector<Finding>& findings);

/// Whether nothing is broken.
bool canDictate(const std::vector<Finding>& findings);

}  // namespace nulo
