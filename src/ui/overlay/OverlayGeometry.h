#pragma once

#include <QRect>
#include <QRegion>

/// Where the overlay's panel goes; points in the desktop's coordinates, y growing downward.
namespace nulo {

/// A new panel, near the bottom centre of what the desktop's own bars leave of the screen.
QRect initialPanelFrame(const QRect& visibleFrame);

/// The panel widened for a text, about its centre.
QRect streamingPanelFrame(const QRect& frame);

/// The panel at the height that its text needs; as it is when that makes at most 4 points. The top
/// edge stays and the panel grows downward, also over the desktop's bars; it is shifted up as far
/// as it would grow out of `screen`, or the newest words could not be read.
QRect resizedPanelFrame(const QRect& frame, double idealHeight, const QRect& screen);

/// Every pixel that a rounded rectangle touches, if only in part.
QRegion roundedRegion(QSize size, int radius);

}  // namespace nulo
