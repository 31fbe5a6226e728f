#include "ui/WaveformPainting.h"

#include <QFontMetricsF>
#include <algorithm>
#include <cmath>
#include <span>

namespace nulo {
namespace {

constexpr double textMargin = 12;
constexpr double emptyPanelHeight = 60;
constexpr double heightBelowText = 4;
constexpr double maxPanelHeight = 200;

QColor grey(float white, float alpha = 1) {
    return QColor::fromRgbF(white, white, white, alpha);
}

QColor withAlpha(QColor color, double alpha) {
    color.setAlphaF(static_cast<float>(alpha));
    return color;
}

/// One line of text with its size.
struct Label {
    Label(const QString& label, const QFont& labelFont) : text(label), font(labelFont) {
        const QFontMetricsF metrics(font);
        width = metrics.horizontalAdvance(text);
        height = metrics.height();
        ascent = metrics.ascent();
    }

    QString text;
    QFont font;
    double width;
    double height;
    double ascent;
};

/// Draws in coordinates whose origin is the bottom left corner and whose y grows upward: rectangles
/// and labels are placed by their lower left corner. The one place where they are turned into the
/// painter's.
class Canvas {
  public:
    Canvas(QPainter& painter, QSizeF size) : m_painter(painter), m_size(size) {}

    double width() const { return m_size.width(); }
    double height() const { return m_size.height(); }
    QRectF flipped(double x, double y, double w, double h) const {
        return {x, height() - y - h, w, h};
    }

    void fillOval(double x, double y, double diameter, const QColor& color) {
        m_painter.setBrush(color);
        m_painter.drawEllipse(flipped(x, y, diameter, diameter));
    }
    void fillRectangle(double x, double y, double w, double h, const QColor& color) {
        m_painter.fillRect(flipped(x, y, w, h), color);
    }
    void fillRounded(double x, double y, double w, double h, double radius, const QColor& color) {
        const double fitting = std::min({radius, w / 2, h / 2});  // corners stay circular
        m_painter.setBrush(color);
        m_painter.drawRoundedRect(flipped(x, y, w, h), fitting, fitting);
    }
    void drawLabel(double x, double y, const Label& label, const QColor& color) {
        const QRectF box = flipped(x, y, label.width, label.height);
        m_painter.setFont(label.font);
        m_painter.setPen(color);
        m_painter.drawText(box.topLeft() + QPointF(0, label.ascent), label.text);
        m_painter.setPen(Qt::NoPen);
    }
    /// `top` is the y of the first line's upper edge.
    void drawText(double x, double top, const StreamingTextLayout& layout, const QColor& color) {
        m_painter.setPen(color);
        layout.draw(m_painter, {x, height() - top}, {{0, 0}, m_size});
        m_painter.setPen(Qt::NoPen);
    }

    /// Calls `draw` for one strip of the width after the other, some rows of pixels high, with its
    /// lower and its upper edge: together the strips show what is drawn in each. Qt hands a shape
    /// of more than 95 pieces of pixel rows to a pool of threads; waking those costs far more than
    /// filling anything of the overlay.
    template <typename Draw>
    void inStrips(Draw draw) {
        const double strip = 20 / std::max(1.0, m_painter.device()->devicePixelRatioF());
        m_painter.save();
        for (double low = 0; low < height(); low += strip) {
            m_painter.setClipRect(flipped(0, low, width(), std::min(strip, height() - low)));
            draw(low, low + strip);
        }
        m_painter.restore();
    }

  private:
    QPainter& m_painter;
    QSizeF m_size;
};

void drawBackground(Canvas& canvas, const QColor& color) {
    const double radius = overlayCornerRadius;
    canvas.inStrips([&](double low, double high) {
        if (low >= radius && high <= canvas.height() - radius)
            canvas.fillRectangle(0, 0, canvas.width(), canvas.height(), color);
        else
            canvas.fillRounded(0, 0, canvas.width(), canvas.height(), radius, color);
    });
}

void drawBars(Canvas& canvas, const WaveformContent& content) {
    const int maxBars = static_cast<int>(canvas.width() - 32) / 5;
    if (maxBars < 0)
        qFatal("The overlay is too narrow for level bars.");
    const std::span<const float> levels = content.audioLevels;
    const auto shown = levels.last(std::min<std::size_t>(levels.size(), maxBars));
    canvas.inStrips([&](double low, double high) {
        double x = (canvas.width() - (shown.size() * 5.0 - 2)) / 2;
        for (const double level : shown) {
            const double barHeight = std::max((canvas.height() - 24) * level, 2.0);
            const double y = (canvas.height() - barHeight) / 2;
            if (y < high && y + barHeight > low)
                canvas.fillRounded(x, y, 3, barHeight, 1.5,
                                   withAlpha(content.barColor, level * 0.6 + 0.4));
            x += 5;
        }
    });
}

void drawRecordingMark(Canvas& canvas) {
    const double y = canvas.height() - 16;
    canvas.fillOval(12, y, 6, QColor::fromRgbF(1.0f, 0.2f, 0.2f));
    canvas.drawLabel(22, y, Label("REC", systemFont(9, QFont::Medium)), grey(0.5f));
}

void drawStatus(Canvas& canvas, const WaveformContent& content, double seconds) {
    const double middleX = canvas.width() / 2;
    const double middleY = canvas.height() / 2;
    for (int dot = 0; dot < 3; ++dot) {
        const double wave = (std::sin(seconds * 3 + 0.8 * dot) + 1) * 0.5;
        canvas.fillOval(middleX - 20 + 10 * dot, middleY + 10, 5,
                        withAlpha(content.barColor, wave * 0.7 + 0.3));
    }
    const Label label(QString::fromStdString(*content.statusText), systemFont(11, QFont::Medium));
    canvas.drawLabel(middleX - label.width / 2, middleY - label.height / 2 - 5, label, grey(0.6f));
}

void drawStreamingText(Canvas& canvas, const WaveformContent& content, StreamingTextLayout& layout,
                       double seconds) {
    layout.update(*content.streamingText, canvas.width() - 2 * textMargin);
    const double boxHeight = canvas.height() - 2 * textMargin;
    const double boxTop = canvas.height() - textMargin;
    // Hangs from the top edge until it is too long; then its newest line stands on the bottom one
    // and the oldest run out of the panel.
    const double overflow = std::max(layout.height() - boxHeight, 0.0);
    const double textTop = boxTop + overflow;
    canvas.drawText(textMargin, textTop, layout, grey(0.92f));

    if (content.streamingDone)
        return;
    const double blink = (std::sin(seconds * 5) + 1) * 0.5;
    const QPointF glyph = layout.lastGlyph();
    // 8 points from the start of the last glyph, not from its end.
    const double x = textMargin + glyph.x() + (content.streamingText->empty() ? 0 : 8);
    canvas.fillRectangle(x, textTop - glyph.y() + 2, 2, 14, withAlpha(content.barColor, blink));
}

void drawDebugOverlay(Canvas& canvas, const WaveformContent& content) {
    if (content.debugLines.empty())
        return;
    QStringList lines;
    for (const std::string& line : content.debugLines)
        lines.append(QString::fromStdString(line));
    const Label label(lines.join("  |  "), monospacedSystemFont(9, QFont::Medium));
    const double x = canvas.width() / 2 - label.width / 2;
    canvas.fillRounded(x - 4, 4, label.width + 8, label.height + 4, 4, grey(0, 0.6f));
    canvas.drawLabel(x, 6, label, QColor::fromRgbF(0.4f, 1.0f, 0.4f, 0.85f));
}

}  // namespace

void paintWaveform(QPainter& painter, const WaveformContent& content, StreamingTextLayout& layout,
                   QSizeF size, double seconds) {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setClipRect(QRectF({0, 0}, size));
    Canvas canvas(painter, size);
    drawBackground(canvas, grey(0.08f));
    if (content.streamingText) {
        drawStreamingText(canvas, content, layout, seconds);
        drawDebugOverlay(canvas, content);
    } else if (content.statusText) {
        drawStatus(canvas, content, seconds);
        drawDebugOverlay(canvas, content);
    } else if (content.audioLevels.empty()) {
        canvas.fillOval(size.width() / 2 - 3, size.height() / 2 - 3, 6, content.barColor);
    } else {
        drawBars(canvas, content);
        drawRecordingMark(canvas);
    }
    painter.restore();
}

double idealHeightForStreamingText(const WaveformContent& content, StreamingTextLayout& layout,
                                   double width) {
    if (!content.streamingText || content.streamingText->empty())
        return emptyPanelHeight;
    layout.update(*content.streamingText, width - 2 * textMargin);
    return std::min(layout.height() + 2 * textMargin + heightBelowText, maxPanelHeight);
}

}  // namespace nulo
