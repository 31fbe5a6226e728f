#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Uuid.h"
#include "config/AppConfig.h"

namespace nulo {

/// What the settings window edits: copies of the modes and of the words, which reach the disk only
/// through recordToSave(). Main thread.
class SettingsModel {
  public:
    using MakeUuid = std::function<std::string()>;

    /// The first mode is the selected one.
    explicit SettingsModel(const AppConfig& config, MakeUuid makeUuid = randomUuid);

    const std::vector<std::string>& words() const { return m_words; }
    /// Appends the word without spaces and tabs at its ends. False, and nothing changed, when
    /// nothing is left of it or the list holds it already.
    bool addWord(std::string_view newWord);
    /// Removes the first word that is equal to the one at `row`; gives the row that it was in.
    std::optional<std::size_t> removeWord(std::size_t row);

    const std::vector<PromptMode>& modes() const { return m_modes; }
    std::optional<std::size_t> selectedRow() const { return m_selectedRow; }
    /// Null when no mode is selected.
    const PromptMode* selectedMode() const;
    /// Its fields become the edited ones. A row that does not exist selects nothing.
    void selectMode(std::size_t row);
    /// Appends a new mode and selects it.
    void addMode();
    bool canDeleteSelectedMode() const;
    /// Does nothing unless canDeleteSelectedMode(); selects the first of the remaining modes.
    void deleteSelectedMode();

    // The fields as they are edited. Edits of a built-in mode stay here: they are not its own, and
    // the next selection drops them.
    const std::string& editedName() const { return m_edited.name; }
    const std::string& editedPrompt() const { return m_edited.prompt; }
    const std::string& editedCleanupModel() const { return m_edited.cleanupModel; }
    /// Whether they differ from the built-in mode that they belong to.
    bool editsAreDropped() const;
    void editName(std::string name);
    void editPrompt(std::string prompt);
    void editCleanupModel(std::string cleanupModel);

    /// The settings to be saved: the edits over everything else that is on the disk now. Without
    /// a readable file the rest are the defaults.
    AppConfig recordToSave(std::optional<AppConfig> onDisk) const;

  private:
    void edit(std::string PromptMode::*field, std::string value);

    MakeUuid m_makeUuid;
    std::vector<PromptMode> m_modes;
    std::vector<std::string> m_words;
    // A row, not an id: a file written by hand may hold an id twice, and an edit of the second mode
    // must not overwrite the first.
    std::optional<std::size_t> m_selectedRow;
    PromptMode m_edited;
};

}  // namespace nulo
