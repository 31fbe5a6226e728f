#pragma once

#include <QColor>
#include <QPainter>
#include <QSizeF>
#include <optional>
#include <string>
#include <vector>

#include "ui/overlay/StreamingTextLayout.h"
#include "ui/overlay/WaveformPictures.h"

namespace nulo {

/// Radius of the overlay's background, in points.
constexpr int overlayCornerRadius = 12;

/// What the overlay shows. A streaming text takes precedence over a status, a status over levels,
/// levels over the idle dot.
struct WaveformContent {
    /// 0...1 each, oldest first.
    std::vector<float> audioLevels;
    std::optional<std::string> statusText;
    /// The text received so far; an empty one still counts as present.
    std::optional<std::string> streamingText;
    /// The text has no cursor once this is true.
    bool streamingDone = false;
    /// Debug steps, shown in one line at the bottom edge of a status or a streaming text.
    std::vector<std::string> debugLines;
    QColor barColor = QColor::fromRgbF(1.0f, 0.25f, 0.25f);
};

/// Kept from one drawing to the next, which makes it quicker; it has no influence on the picture.
struct WaveformMemory {
    StreamingTextLayout layout;
    WaveformPictures pictures;
};

/// Draws the overlay at the painter's origin, `size` points large and at least as large as its
/// corners, as it looks `seconds` into its animations (only differences between two drawings
/// count). Levels need a width of at least 28 points: less is a bug of the caller and ends the
/// program. Main thread.
void paintWaveform(QPainter& painter, const WaveformContent& content, WaveformMemory& memory,
                   QSizeF size, double seconds);

/// Height in points that a panel `width` points wide needs for the content's streaming text: 60 for
/// none, 200 at most.
double idealHeightForStreamingText(const WaveformContent& content, StreamingTextLayout& layout,
                                   double width);

}  // namespace nulo
