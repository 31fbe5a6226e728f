#pragma once

#include <QPainter>
#include <QPixmap>
#include <QRect>

namespace nulo {

/// A soft shadow with a faint bright line inside it, around a rounded panel: the shadow sets the
/// panel off from what is light, the line from what is dark. Main thread.
class OverlayShadow {
  public:
    /// Points that the shadow takes on each side of the panel.
    static constexpr int margin = 24;

    /// Draws the shadow in `window`, which is the panel with the margin on each side. It reaches
    /// under the panel's edge.
    void draw(QPainter& painter, const QRect& window);

  private:
    QPixmap m_corners;  // a small panel's shadow, of which the middle is stretched
};

}  // namespace nulo
