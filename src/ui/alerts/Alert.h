#pragma once

#include <QPointer>
#include <QWidget>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "base/Clock.h"

namespace nulo {

/// What an alert shows. The texts are UTF-8 and plain: markup in them is shown as it is.
struct AlertContent {
    enum class Style { warning, informational };

    Style style = Style::informational;
    std::string message;
    std::string informativeText;
    /// At least one, shown in this order. The first is the default, which Return presses; Escape
    /// and closing the window count as the last. Keys are taken as KeyGuard says.
    std::vector<std::string> buttons;
};

/// Brings the program's alerts up. Main thread, with a QApplication.
class Alerts {
  public:
    /// `visibleFrame` tells what the desktop's bars leave of the screen for new windows. `clock`
    /// outlives the alerts.
    Alerts(const Clock& clock, std::function<QRect()> visibleFrame);

    /// Shows an alert above all windows, raised and activated, and returns at once: the event loop
    /// goes on, and several alerts may be open. `onAnswer` gets the button's index, once, after the
    /// alert has gone; not at all when the program ends first or the returned window is destroyed.
    QPointer<QWidget> show(AlertContent content,
                           std::function<void(std::size_t button)> onAnswer) const;

    /// Shows the window, in the middle of the screen if it was not shown, and gives it the
    /// keyboard.
    void showInFront(QWidget& window) const;

  private:
    const Clock& m_clock;
    const std::function<QRect()> m_visibleFrame;
};

}  // namespace nulo
