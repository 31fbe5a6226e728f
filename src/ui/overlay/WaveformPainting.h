#pragma once

#include <QPainter>
#include <QSizeF>

#include "ui/overlay/StreamingTextLayout.h"
#include "ui/overlay/WaveformContent.h"
#include "ui/overlay/WaveformPictures.h"

namespace nulo {

/// Of the overlay's background.
constexpr int overlayCornerRadius = 12;

/// What is kept from one drawing to the next, to be quicker; it has no influence on the picture.
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
