#include "config/ConfigFile.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/FileIO.h"

namespace nulo {
namespace {

using nlohmann::json;

// Far above any real configuration; keeps a wrong file from filling the memory.
constexpr std::uintmax_t sizeLimit = 64 * 1024 * 1024;

/// A key that is absent leaves `field` as it is; false when it holds another type.
bool readField(const json& object, const char* key, std::string& field) {
    const auto found = object.find(key);
    if (found == object.end())
        return true;
    if (!found->is_string())
        return false;
    field = found->get<std::string>();
    return true;
}

bool readField(const json& object, const char* key, bool& field) {
    const auto found = object.find(key);
    if (found == object.end())
        return true;
    if (!found->is_boolean())
        return false;
    field = found->get<bool>();
    return true;
}

bool readElement(const json& element, std::string& word) {
    if (!element.is_string())
        return false;
    word = element.get<std::string>();
    return true;
}

bool readElement(const json& element, PromptMode& mode) {
    if (!element.is_object())
        return false;
    for (const char* required : {"id", "name", "prompt", "isBuiltIn"})
        if (!element.contains(required))
            return false;
    return readField(element, "id", mode.id) && readField(element, "name", mode.name) &&
           readField(element, "prompt", mode.prompt) &&
           readField(element, "isBuiltIn", mode.isBuiltIn) &&
           readField(element, "cleanupModel", mode.cleanupModel);
}

template <typename Element>
bool readField(const json& object, const char* key, std::vector<Element>& field) {
    const auto found = object.find(key);
    if (found == object.end())
        return true;
    if (!found->is_array())
        return false;
    for (const json& item : *found)
        if (!readElement(item, field.emplace_back()))
            return false;
    return true;
}

std::optional<AppConfig> decode(const json& object) {
    AppConfig config;
    const bool valid = object.is_object() && readField(object, "activeMode", config.activeMode) &&
                       readField(object, "modes", config.modes) &&
                       readField(object, "dictionary", config.dictionary) &&
                       readField(object, "transcriptionProvider", config.transcriptionProvider) &&
                       readField(object, "debugMode", config.debugMode);
    return valid ? std::optional(std::move(config)) : std::nullopt;
}

std::string encode(const AppConfig& config) {
    using nlohmann::ordered_json;
    ordered_json modes = ordered_json::array();
    for (const PromptMode& mode : config.modes)
        modes.push_back({{"id", mode.id},
                         {"name", mode.name},
                         {"prompt", mode.prompt},
                         {"isBuiltIn", mode.isBuiltIn},
                         {"cleanupModel", mode.cleanupModel}});
    const ordered_json object = {{"activeMode", config.activeMode},
                                 {"modes", std::move(modes)},
                                 {"dictionary", config.dictionary},
                                 {"transcriptionProvider", config.transcriptionProvider},
                                 {"debugMode", config.debugMode}};
    return object.dump(2, ' ', false, ordered_json::error_handler_t::replace);
}

/// Makes the stored built-ins what the program holds; true when that changed anything.
bool refreshBuiltIns(std::vector<PromptMode>& modes) {
    const auto byId = [&modes](const std::string& id) {
        return std::find_if(modes.begin(), modes.end(),
                            [&id](const PromptMode& mode) { return mode.id == id; });
    };
    // Looks at the list as it was read, so that an empty one gains the built-ins in their order.
    const bool hadVoiceToText = byId(voiceToTextMode().id) != modes.end();
    bool changed = false;
    for (const PromptMode& builtIn : defaultModes()) {
        const auto stored = byId(builtIn.id);
        if (stored == modes.end()) {
            modes.insert(hadVoiceToText ? byId(voiceToTextMode().id) + 1 : modes.end(), builtIn);
            changed = true;
        } else if (stored->prompt != builtIn.prompt || stored->name != builtIn.name ||
                   stored->cleanupModel != builtIn.cleanupModel) {
            stored->prompt = builtIn.prompt;
            stored->name = builtIn.name;
            stored->cleanupModel = builtIn.cleanupModel;
            changed = true;
        }
    }
    return changed;
}

std::optional<json> readJson(const std::filesystem::path& path) {
    const auto bytes = readFile(path, sizeLimit);
    if (!bytes)
        return std::nullopt;
    json value = json::parse(*bytes, nullptr, false);
    return value.is_discarded() ? std::nullopt : std::optional(std::move(value));
}

}  // namespace

ConfigFile::ConfigFile(const std::filesystem::path& home, Print print)
    : m_configDir(home / ".config" / "nulo"),
      m_configFile(m_configDir / "config.json"),
      m_legacyFile(home / ".config" / "quennel" / "config.json"),
      m_print(std::move(print)) {}

void ConfigFile::createDefaultIfNeeded() const {
    std::error_code error;
    // A dangling link counts as missing: saving creates the file that it points to.
    if (std::filesystem::exists(m_configFile, error))
        load();  // brings the file up to date; it always holds modes afterwards
    else
        migrateOrCreate();
}

void ConfigFile::migrateOrCreate() const {
    AppConfig config = defaultConfig();
    const auto legacy = readJson(m_legacyFile);
    const bool migrates = legacy && legacy->is_object();
    if (migrates) {
        std::string prompt;
        if (readField(*legacy, "cleanupPrompt", prompt) && !prompt.empty()) {
            config.modes.front().prompt = prompt;
            config.modes.front().cleanupModel = "mistral";
        }
    }
    save(config);
    m_print(migrates ? "Config migrated from ~/.config/quennel/ to ~/.config/nulo/"
                     : "Config created at: " + m_configFile.string());
}

std::optional<AppConfig> ConfigFile::load() const {
    const auto object = readJson(m_configFile);
    if (!object)
        return std::nullopt;
    auto config = decode(*object);
    if (!config)
        return std::nullopt;
    const bool hasLegacyKeys =
        object->contains("openaiApiKey") || object->contains("cleanupPrompt");
    if (refreshBuiltIns(config->modes) || hasLegacyKeys)
        save(*config);
    return config;
}

Outcome ConfigFile::trySave(const AppConfig& config) const {
    std::error_code ignored;
    std::filesystem::create_directories(m_configDir, ignored);
    return replaceFile(m_configFile, encode(config));
}

void ConfigFile::save(const AppConfig& config) const {
    static_cast<void>(trySave(config));
}

}  // namespace nulo
