#pragma once

#include <QColor>
#include <optional>
#include <string>
#include <vector>

namespace nulo {

/// What the overlay shows. A streaming text takes precedence over a status, a status over levels,
/// levels over the idle dot.
struct WaveformContent {
    /// 0...1 each, oldest first.
    std::vector<float> audioLevels;
    std::optional<std::string> statusText;
    /// The text received so far; an empty one still counts as present.
    std::optional<std::string> streamingText;
    /// Without a cursor once true.
    bool streamingDone = false;
    /// Debug steps, shown in one line at the bottom edge of a status or a streaming text.
    std::vector<std::string> debugLines;
    QColor barColor = QColor::fromRgbF(1.0f, 0.25f, 0.25f);
};

}  // namespace nulo
