#include "config/AppConfig.h"

#include <algorithm>

namespace nulo {

const PromptMode* AppConfig::findActiveMode() const {
    const auto found = std::find_if(modes.begin(), modes.end(),
                                    [this](const auto& mode) { return mode.id == activeMode; });
    return found == modes.end() ? nullptr : &*found;
}

std::string AppConfig::activePrompt() const {
    const PromptMode* mode = findActiveMode();
    return mode ? mode->prompt : voiceToTextMode().prompt;
}

std::string AppConfig::activeModeName() const {
    const PromptMode* mode = findActiveMode();
    return mode ? mode->name : voiceToTextMode().name;
}

std::string AppConfig::activeCleanupModel() const {
    const PromptMode* mode = findActiveMode();
    return mode ? mode->cleanupModel : "mistral";
}

std::optional<std::string> AppConfig::dictionaryPrompt() const {
    if (dictionary.empty())
        return std::nullopt;
    std::string prompt = "Vocabulaire : ";
    for (const std::string& word : dictionary) {
        if (&word != &dictionary.front())
            prompt += ", ";
        prompt += word;
    }
    return prompt;
}

AppConfig defaultConfig() {
    AppConfig config;
    config.modes = defaultModes();
    return config;
}

}  // namespace nulo
