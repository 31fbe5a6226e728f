#pragma once

#include <QPointer>
#include <QWidget>
#include <cstddef>
#include <functional>

#include "base/Clock.h"
#include "ui/AlertContent.h"

namespace nulo {

/// Brings the program's alerts up. Main thread, with a QApplication.
class Alerts {
  public:
    /// `visibleFrame` tells what the desktop's bars leave of the screen for new windows. `clock`
    /// outlives the alerts.
    Alerts(const Clock& clock, std::function<QRect()> visibleFrame);

    /// Shows an alert above all windows, raised and activated, and returns at once: the event loop
    /// goes on, and several alerts may be open. Keys answer it as KeyGuard says. `onAnswer` gets
    /// the button's index, once, after the alert has gone; not at all when the program ends first
    /// or the returned window is destroyed.
    QPointer<QWidget> show(AlertContent content,
                           std::function<void(std::size_t button)> onAnswer) const;

    /// Shows over `window` an alert that the user has asked for there: keys answer it at once, and
    /// until it has gone the window takes no input. It is destroyed with the window; `onAnswer` is
    /// called as by show().
    void showOver(QWidget& window, AlertContent content,
                  std::function<void(std::size_t button)> onAnswer) const;

    /// Shows the window, in the middle of the screen if it was not shown, and gives it the
    /// keyboard.
    void showInFront(QWidget& window) const;

  private:
    const Clock& m_clock;
    const std::function<QRect()> m_visibleFrame;
};

}  // namespace nulo
