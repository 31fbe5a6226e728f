#pragma once

#include <QPlainTextEdit>
#include <QStackedWidget>
#include <functional>

#include "ui/settings/PasteableTextField.h"
#include "ui/settings/SegmentedPicker.h"
#include "ui/settings/SettingsModel.h"

namespace nulo {

/// Name, prompt and clean-up provider of the model's selected mode. Main thread.
class ModeEditor final : public QStackedWidget {
  public:
    /// `model` outlives the editor.
    ModeEditor(SettingsModel& model, QWidget* parent);

    /// Shows the mode that is selected now.
    void showSelectedMode();
    /// Puts the cursor into the name, all of it selected.
    void startRenaming();

    /// The user changed a field, the model has the change.
    std::function<void()> onEdited;

  private:
    QWidget* makeForm();
    void edited();

    SettingsModel& m_model;
    QWidget* m_form;
    QWidget* m_nothingSelected;
    PasteableTextField* m_name;
    QPlainTextEdit* m_prompt;
    QWidget* m_promptNote;
    SegmentedPicker* m_cleanupModel;
};

}  // namespace nulo
