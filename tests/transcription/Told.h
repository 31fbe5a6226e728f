#pragma once

#include <string>
#include <vector>

#include "transcription/TranscriptionError.h"

namespace nulo {

/// What the owner of a transcription is told, in order. Outlives the callbacks it makes.
struct Told {
    std::vector<std::string> calls;

    auto time() {
        return [this](long long time) { calls.push_back("time " + std::to_string(time)); };
    }
    auto token() {
        return [this](const std::string& fragment) { calls.push_back("token " + fragment); };
    }
    auto completion() {
        return [this](const TextResult& result) {
            calls.push_back(result ? "text " + result.value()
                                   : "failure " + describe(result.error()));
        };
    }
};

}  // namespace nulo
