#include "ui/settings/SettingsModel.h"

#include <algorithm>
#include <utility>

namespace nulo {
namespace {

std::string_view withoutOuterBlanks(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

}  // namespace

SettingsModel::SettingsModel(const AppConfig& config, MakeUuid makeUuid)
    : m_makeUuid(std::move(makeUuid)), m_modes(config.modes), m_words(config.dictionary) {
    selectMode(0);
}

bool SettingsModel::addWord(std::string_view newWord) {
    const std::string_view word = withoutOuterBlanks(newWord);
    if (word.empty() || std::find(m_words.begin(), m_words.end(), word) != m_words.end())
        return false;
    m_words.emplace_back(word);
    return true;
}

std::optional<std::size_t> SettingsModel::removeWord(std::size_t row) {
    if (row >= m_words.size())
        return std::nullopt;
    const auto first = std::find(m_words.begin(), m_words.end(), m_words[row]);
    const auto removed = static_cast<std::size_t>(first - m_words.begin());
    m_words.erase(first);
    return removed;
}

const PromptMode* SettingsModel::selectedMode() const {
    return m_selectedRow ? &m_modes[*m_selectedRow] : nullptr;
}

void SettingsModel::selectMode(std::size_t row) {
    if (row >= m_modes.size()) {
        m_selectedRow.reset();
        return;
    }
    m_selectedRow = row;
    m_edited = m_modes[row];
}

void SettingsModel::addMode() {
    m_modes.push_back(newCustomMode(m_makeUuid()));
    selectMode(m_modes.size() - 1);
}

bool SettingsModel::canDeleteSelectedMode() const {
    const PromptMode* mode = selectedMode();
    return mode && !mode->isBuiltIn;
}

void SettingsModel::deleteSelectedMode() {
    if (!canDeleteSelectedMode())
        return;
    m_modes.erase(m_modes.begin() + static_cast<std::ptrdiff_t>(*m_selectedRow));
    selectMode(0);
}

bool SettingsModel::editsAreDropped() const {
    return m_selectedRow && m_edited != m_modes[*m_selectedRow];
}

void SettingsModel::editName(std::string name) {
    edit(&PromptMode::name, std::move(name));
}

void SettingsModel::editPrompt(std::string prompt) {
    edit(&PromptMode::prompt, std::move(prompt));
}

void SettingsModel::editCleanupModel(std::string cleanupModel) {
    edit(&PromptMode::cleanupModel, std::move(cleanupModel));
}

void SettingsModel::edit(std::string PromptMode::*field, std::string value) {
    m_edited.*field = std::move(value);
    if (m_selectedRow && !m_modes[*m_selectedRow].isBuiltIn)
        m_modes[*m_selectedRow].*field = m_edited.*field;
}

AppConfig SettingsModel::recordToSave(std::optional<AppConfig> onDisk) const {
    AppConfig config = std::move(onDisk).value_or(AppConfig());
    config.modes = m_modes;
    config.dictionary = m_words;
    return config;
}

}  // namespace nulo
