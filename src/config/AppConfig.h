#pragma once

#include <optional>
#include <string>
#include <vector>

#include "config/PromptMode.h"

namespace nulo {

/// The user's settings: a plain record that every reader loads afresh from ConfigFile.
struct AppConfig {
    std::string activeMode = "voice-to-text";      // the id of the mode in use
    std::vector<PromptMode> modes;                 // in menu order
    std::vector<std::string> dictionary;           // vocabulary for the recogniser
    std::string transcriptionProvider = "openai";  // "openai" or "mistral"
    bool debugMode = false;

    bool operator==(const AppConfig&) const = default;

    // The active mode is the first whose id equals activeMode. When none does, the built-in
    // "voice-to-text" speaks, except that its clean-up provider is then "mistral".
    std::string activePrompt() const;
    std::string activeModeName() const;
    std::string activeCleanupModel() const;

    /// "Vocabulaire : " and the words; nothing for an empty dictionary.
    std::optional<std::string> dictionaryPrompt() const;

    /// The modes that the menu offers.
    const std::vector<PromptMode>& availableModes() const { return modes; }

  private:
    const PromptMode* findActiveMode() const;
};

/// The settings of a new user.
AppConfig defaultConfig();

}  // namespace nulo
