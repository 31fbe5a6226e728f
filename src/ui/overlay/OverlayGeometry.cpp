#include "ui/overlay/OverlayGeometry.h"

#include <algorithm>
#include <cmath>

namespace nulo {
namespace {

constexpr int initialWidth = 300;
constexpr int initialHeight = 60;
constexpr int heightAboveBottom = 80;
constexpr int streamingWidth = 400;
constexpr double toleratedHeightDifference = 4;

}  // namespace

QRect initialPanelFrame(const QRect& visibleFrame) {
    const int bottom = visibleFrame.y() + visibleFrame.height() - heightAboveBottom;
    return {visibleFrame.x() + visibleFrame.width() / 2 - initialWidth / 2, bottom - initialHeight,
            initialWidth, initialHeight};
}

QRect streamingPanelFrame(const QRect& frame) {
    const int centre = frame.x() + frame.width() / 2;
    return {centre - streamingWidth / 2, frame.y(), streamingWidth, frame.height()};
}

QRect resizedPanelFrame(const QRect& frame, double idealHeight, const QRect& screen) {
    if (std::abs(idealHeight - frame.height()) <= toleratedHeightDifference)
        return frame;
    const int height = static_cast<int>(std::ceil(idealHeight));
    const int lowestTop = screen.y() + screen.height() - height;
    const int top = height > frame.height() ? std::min(frame.y(), lowestTop) : frame.y();
    return {frame.x(), top, frame.width(), height};
}

QRegion roundedRegion(QSize size, int radius) {
    QRegion region(0, radius, size.width(), size.height() - 2 * radius);
    for (int row = 0; row < radius; ++row) {
        const double nearest = radius - row - 1;  // of the row's two edges, to the corner's centre
        const int inset = static_cast<int>(radius - std::sqrt(radius * radius - nearest * nearest));
        const int width = size.width() - 2 * inset;
        region += QRect(inset, row, width, 1);
        region += QRect(inset, size.height() - row - 1, width, 1);
    }
    return region;
}

}  // namespace nulo
