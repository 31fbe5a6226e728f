#include "doctor/Finding.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace nulo {
namespace {

/// A verdict for programs and for people.
struct Words {
    const char* name;
    const char* mark;
};

Words wordsOf(Finding::Verdict verdict) {
    switch (verdict) {
        case Finding::Verdict::good:
            return {"good", "  ok    "};
        case Finding::Verdict::weak:
            return {"weak", "  note  "};
        case Finding::Verdict::broken:
            break;
    }
    return {"broken", "  FAULT "};
}

}  // namespace

bool canDictate(const std::vector<Finding>& findings) {
    return std::ranges::none_of(findings, [](const Finding& finding) {
        return finding.verdict == Finding::Verdict::broken;
    });
}

std::string asText(const std::vector<Finding>& findings) {
    std::string text;
    for (const Finding& finding : findings) {
        text += wordsOf(finding.verdict).mark + finding.name + ": " + finding.text;
        text += finding.advice.empty() ? "\n" : ". " + finding.advice + "\n";
    }
    text += canDictate(findings) ? "Dictation can work.\n" : "Dictation cannot work yet.\n";
    return text;
}

std::string asJson(const std::vector<Finding>& findings) {
    nlohmann::ordered_json document{{"canDictate", canDictate(findings)}};
    document["findings"] = nlohmann::ordered_json::array();
    for (const Finding& finding : findings)
        document["findings"].push_back({{"name", finding.name},
                                        {"verdict", wordsOf(finding.verdict).name},
                                        {"text", finding.text},
                                        {"advice", finding.advice}});
    // Names that the system gives may be no UTF-8.
    return document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace nulo
