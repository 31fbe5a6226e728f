#pragma once

#include <QLabel>
#include <QWidget>

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

  private:
    QWidget* makeContent();
    QWidget* makeBottomBar();
    QWidget* makeMenuButton(QWidget* parent);
    void saveConfig();
    void showStatus(const QString& text, bool isError);
    void edited();
    void applyTheme();

    SettingsHost m_host;
    SettingsModel m_model;
    QWidget* m_firstField = nullptr;  // where typing goes when the window opens
    QLabel* m_status = nullptr;
};

}  // namespace nulo
