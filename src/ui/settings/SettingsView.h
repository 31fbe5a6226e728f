#pragma once

#include <QLabel>
#include <QWidget>

#include "ui/settings/DictionarySection.h"
#include "ui/settings/ModesSection.h"
#include "ui/settings/SettingsHost.h"
#include "ui/settings/SettingsModel.h"

namespace nulo {

/// The content of the settings window: dictionary, modes and, below them, the button that saves.
/// Edits copies; nothing is written before the user asks for it. Main thread.
class SettingsView final : public QWidget {
  public:
    SettingsView(const AppConfig& config, SettingsHost host);

  protected:
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

  private:
    QWidget* makeContent();
    QWidget* makeBottomBar();
    QWidget* makeMenuButton(QWidget* parent);
    void takeShortcutsOfProgramMenu();
    void saveConfig();
    void showStatus(const QString& text, bool isError);
    void edited();
    void applyTheme();

    SettingsHost m_host;
    SettingsModel m_model;
    DictionarySection* m_dictionary = nullptr;
    ModesSection* m_modes = nullptr;
    QLabel* m_status = nullptr;
};

}  // namespace nulo
