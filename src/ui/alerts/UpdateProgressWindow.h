#pragma once

#include <QString>
#include <QWidget>
#include <functional>

namespace nulo {

/// Tells that a new version is being downloaded: a text and a busy bar. It has no close control,
/// but Escape and the window manager's own ways of closing a window ask for an end of the download.
class UpdateProgressWindow final : public QWidget {
  public:
    /// `onCancel` runs from the event loop and may destroy the window.
    UpdateProgressWindow(const QString& version, std::function<void()> onCancel);

  protected:
    void keyPressEvent(QKeyEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

  private:
    void cancelLater();

    const std::function<void()> m_onCancel;
};

}  // namespace nulo
