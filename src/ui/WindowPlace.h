#pragma once

#include <QRect>
#include <QWidget>

namespace nulo {

/// Puts a window that is not shown yet in the middle of `visibleFrame`, at its present size.
void placeInMiddle(QWidget& window, const QRect& visibleFrame);

/// Shows the window, unfolded, above the others, and asks for the keyboard for it.
void bringToFront(QWidget& window);

}  // namespace nulo
