#pragma once

#include <QWidget>
#include <functional>

#include "ui/settings/ModeEditor.h"
#include "ui/settings/ModeList.h"
#include "ui/settings/SettingsModel.h"
#include "ui/settings/Symbols.h"

namespace nulo {

/// The list of modes with its plus and minus buttons, and the editor of the selected one beside it.
/// Main thread.
class ModesSection final : public QWidget {
  public:
    /// `model` outlives the section.
    ModesSection(SettingsModel& model, QWidget* parent);

    /// Shows the selected mode as it is stored, without edits that were not kept.
    void showStoredMode();

    /// Deletes the selected mode, when it can be.
    void deleteSelectedMode();

    /// The user wants the selected mode, which can be deleted, to go.
    std::function<void()> onDeletionWanted;
    /// Another mode is selected, or none.
    std::function<void()> onSelected;
    /// The user changed, added or deleted a mode.
    std::function<void()> onEdited;

  private:
    QWidget* makeListColumn(QWidget* parent);
    void addMode();
    void showSelectedMode();
    void edited();

    SettingsModel& m_model;
    ModeList* m_list;
    SymbolButton* m_deleteButton;
    ModeEditor* m_editor;
};

}  // namespace nulo
