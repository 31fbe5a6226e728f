#include "ui/WindowPlace.h"

namespace nulo {

void placeInMiddle(QWidget& window, const QRect& visibleFrame) {
    QRect frame(QPoint(), window.size());
    frame.moveCenter(visibleFrame.center());
    window.move(frame.topLeft());
}

void bringToFront(QWidget& window) {
    window.setWindowState(window.windowState() & ~Qt::WindowMinimized);
    window.show();
    window.raise();
    window.activateWindow();
}

}  // namespace nulo
