#pragma once

#include <QPointer>
#include <QWidget>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace nulo {

/// What an alert shows. The texts are UTF-8 and plain: markup in them is shown as it is.
struct AlertContent {
    enum class Style { warning, informational };

    Style style = Style::informational;
    std::string message;
    std::string informativeText;
    /// At least one, shown in this order. The first is the default, which Return presses; Escape
    /// and closing the window count as the last.
    std::vector<std::string> buttons;
};

/// Shows an alert above all windows, raised and activated, and returns at once: the event loop goes
/// on, and several alerts may be open. `onAnswer` gets the button's index, once, after the alert
/// has gone; not at all when the program ends first or the returned window is destroyed. Main
/// thread.
QPointer<QWidget> showAlert(AlertContent content, std::function<void(std::size_t button)> onAnswer);

/// Shows the window, in the middle of the screen that the pointer is on, and gives it the keyboard.
void showInFront(QWidget& window);

}  // namespace nulo
