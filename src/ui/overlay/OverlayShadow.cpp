#include "ui/overlay/OverlayShadow.h"

#include <qdrawutil.h>

#include <QImage>
#include <algorithm>
#include <cmath>

#include "ui/overlay/WaveformPainting.h"

namespace nulo {
namespace {

constexpr double drop = 5;  // points that the shadow lies lower than its panel
constexpr double softness = 8;
constexpr double darkest = 0.5;
constexpr double lineAlpha = 0.22;

/// The part of each side of the small panel's shadow that is not stretched.
constexpr int fixedPart = OverlayShadow::margin + overlayCornerRadius + static_cast<int>(drop);
constexpr int smallSide = 2 * fixedPart + 1;

/// The distance from the edge of a rounded rectangle to a point outside it; negative inside. The
/// rectangle has the small panel's size, and `point` is seen from its centre.
double distanceFromPanel(QPointF point) {
    constexpr double straight = smallSide / 2.0 - OverlayShadow::margin - overlayCornerRadius;
    const double x = std::abs(point.x()) - straight;
    const double y = std::abs(point.y()) - straight;
    return std::hypot(std::max(x, 0.0), std::max(y, 0.0)) + std::min(std::max(x, y), 0.0) -
           overlayCornerRadius;
}

QPixmap drawCorners(double pixelsPerPoint) {
    const int side = qRound(smallSide * pixelsPerPoint);
    QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
    for (int row = 0; row < side; ++row) {
        for (int column = 0; column < side; ++column) {
            const QPointF point((column + 0.5) / pixelsPerPoint - smallSide / 2.0,
                                (row + 0.5) / pixelsPerPoint - smallSide / 2.0);
            const double fromShadow = distanceFromPanel(point - QPointF(0, drop));
            // Nothing is left at the margin's end, where the window ends.
            const double reach =
                std::clamp(1 - fromShadow / (OverlayShadow::margin - drop), 0., 1.);
            const double shadow =
                darkest * reach * std::erfc(fromShadow / softness / std::sqrt(2.0)) / 2;
            const double fromPanel = distanceFromPanel(point) * pixelsPerPoint;
            const auto coverage = [](double edge) { return std::clamp(0.5 - edge, 0.0, 1.0); };
            const double line = lineAlpha * (coverage(fromPanel - 1) - coverage(fromPanel));
            const int grey = qRound(255 * line);
            image.setPixel(column, row,
                           qRgba(grey, grey, grey, qRound(255 * (line + shadow * (1 - line)))));
        }
    }
    return QPixmap::fromImage(image);
}

}  // namespace

void OverlayShadow::draw(QPainter& painter, const QRect& window) {
    const double pixelsPerPoint = painter.device()->devicePixelRatioF();
    const int side = qRound(smallSide * pixelsPerPoint);
    if (m_corners.width() != side)
        m_corners = drawCorners(pixelsPerPoint);
    const int cut = (side - 1) / 2;
    const QMargins target(fixedPart, fixedPart, fixedPart, fixedPart);
    qDrawBorderPixmap(&painter, window, target, m_corners, m_corners.rect(),
                      QMargins(cut, cut, cut, cut));
}

}  // namespace nulo
