#pragma once

#include <string_view>

namespace nulo {

/// Who turns speech into text behind the service; the program itself only names it in a form field.
enum class TranscriptionProvider { openai, mistral };

/// The name that is sent to the service.
constexpr std::string_view rawValue(TranscriptionProvider provider) {
    return provider == TranscriptionProvider::openai ? "openai" : "mistral";
}

/// The name that diagnostic lines show.
constexpr std::string_view label(TranscriptionProvider provider) {
    return provider == TranscriptionProvider::openai ? "OpenAI" : "Voxtral (Mistral)";
}

}  // namespace nulo
