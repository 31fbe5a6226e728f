#pragma once

#include <QRect>
#include <QRegion>

/// Computes where the overlay's panel goes, in points of the desktop's coordinates, y growing
/// downward.
namespace nulo {

/// A new panel, near the bottom centre of what the desktop's own bars leave of the screen.
QRect initialPanelFrame(const QRect& visibleFrame);

/// The panel widened for a text, about its centre.
QRect streamingPanelFrame(const QRect& frame);

/// The panel at the height that its text needs; unchanged when that makes 4 points at most. The
/// panel grows downward from its top edge, also over the desktop's bars. As far as it would grow
/// out of `screen`, it is shifted up, so that the newest words can be read.
QRect resizedPanelFrame(const QRect& frame, double idealHeight, const QRect& screen);

/// Every pixel that a rounded rectangle touches, if only in part.
QRegion roundedRegion(QSize size, int radius);

}  // namespace nulo
