#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace nulo {

/// One named instruction that tells the clean-up model what to do with a transcript.
struct PromptMode {
    std::string id;  // stable; custom modes: 8 lower-case hexadecimal digits
    std::string name;
    std::string prompt;  // may be empty
    bool isBuiltIn = false;
    std::string cleanupModel = "mistral";  // provider of the clean-up model: "openai" or "mistral"

    bool operator==(const PromptMode&) const = default;
};

const PromptMode& voiceToTextMode();
/// The pipeline takes this one as the request for no clean-up at all.
const PromptMode& rawTranscriptionMode();
const PromptMode& systemCommandMode();
const PromptMode& emailMode();
const PromptMode& spanishMode();

/// The built-in modes in menu order.
const std::vector<PromptMode>& defaultModes();

/// What the settings' add action appends; its id is the beginning of `uuid`, a fresh random UUID in
/// text form.
PromptMode newCustomMode(std::string_view uuid);

}  // namespace nulo
