#pragma once

#include <QWidget>
#include <functional>

#include "ui/settings/PasteableTextField.h"
#include "ui/settings/SettingsModel.h"
#include "ui/settings/WordChips.h"

namespace nulo {

/// The words that the recogniser should know: a chip each, and a field for a new one. Main thread.
class DictionarySection final : public QWidget {
  public:
    /// `model` outlives the section.
    DictionarySection(SettingsModel& model, QWidget* parent);

    /// The user changed the words.
    std::function<void()> onEdited;

    /// The most points of height that the words take.
    void setMostHeightOfWords(int height) { m_chips->setMostHeight(height); }

    /// The field that has the keyboard when the window opens.
    QWidget& newWordField() { return *m_newWord; }

  private:
    void addWord();
    void removeWord(int row);
    void edited();

    SettingsModel& m_model;
    WordChips* m_chips;
    PasteableTextField* m_newWord;
};

}  // namespace nulo
