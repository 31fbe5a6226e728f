#include "ui/overlay/WaveformPainting.h"

#include <QFontMetricsF>
#include <algorithm>
#include <cmath>
#include <span>

#include "ui/overlay/OverlayFonts.h"

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

    /// Shows what `draw` draws on a canvas of that place and size, or a picture kept of it.
    template <typename Draw>
    void drawKept(WaveformPictures& pictures, WaveformPictures::Part part, float level,
                  const QRectF& box, Draw draw) {
        pictures.draw(m_painter, part, level, box, [&](QPainter& painter) {
            Canvas canvas(painter, box.size());
            draw(canvas);
        });
    }

  private:
    QPainter& m_painter;
    QSizeF m_size;
};

void drawBackground(Canvas& canvas, WaveformPictures& pictures, const QColor& color) {
    const double radius = overlayCornerRadius;
    const double width = canvas.width();
    const double middle = canvas.height() - 2 * radius;
    canvas.drawKept(pictures, WaveformPictures::Part::topEdge, 0,
                    canvas.flipped(0, radius + middle, width, radius), [&](Canvas& edge) {
                        edge.fillRounded(0, -radius, width, 2 * radius, radius, color);
                    });
    canvas.fillRectangle(0, radius, width, middle, color);
    canvas.drawKept(
        pictures, WaveformPictures::Part::bottomEdge, 0, canvas.flipped(0, 0, width, radius),
        [&](Canvas& edge) { edge.fillRounded(0, 0, width, 2 * radius, radius, color); });
}

void drawBars(Canvas& canvas, WaveformPictures& pictures, const WaveformContent& content) {
    const int maxBars = static_cast<int>(canvas.width() - 32) / 5;
    if (maxBars < 0)
        qFatal("The overlay is too narrow for level bars.");
    const std::span<const float> levels = content.audioLevels;
    const auto shown = levels.last(std::min<std::size_t>(levels.size(), maxBars));
    double x = (canvas.width() - (shown.size() * 5.0 - 2)) / 2;
    for (const float level : shown) {
        const double height = std::max((canvas.height() - 24) * double{level}, 2.0);
        const QRectF box = canvas.flipped(x, (canvas.height() - height) / 2, 3, height);
        canvas.drawKept(pictures, WaveformPictures::Part::bar, level, box, [&](Canvas& bar) {
            bar.fillRounded(0, 0, 3, height, 1.5,
                            withAlpha(content.barColor, double{level} * 0.6 + 0.4));
        });
        x += 5;
    }
}

void drawRecordingMark(Canvas& canvas, WaveformPictures& pictures) {
    // With room for the letters of any font.
    const QRectF box = canvas.flipped(12, canvas.height() - 16, 60, 16);
    canvas.drawKept(pictures, WaveformPictures::Part::recordingMark, 0, box, [&](Canvas& mark) {
        mark.fillOval(0, 0, 6, QColor::fromRgbF(1.0f, 0.2f, 0.2f));
        mark.drawLabel(10, 0, Label("REC", systemFont(9, QFont::Medium)), grey(0.5f));
    });
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

void paintWaveform(QPainter& painter, const WaveformContent& content, WaveformMemory& memory,
                   QSizeF size, double seconds) {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setClipRect(QRectF({0, 0}, size));
    Canvas canvas(painter, size);
    const QColor background = grey(0.08f);
    memory.pictures.usePanel(
        {size, painter.device()->devicePixelRatioF(), background, content.barColor});
    drawBackground(canvas, memory.pictures, background);
    if (content.streamingText) {
        drawStreamingText(canvas, content, memory.layout, seconds);
        drawDebugOverlay(canvas, content);
    } else if (content.statusText) {
        drawStatus(canvas, content, seconds);
        drawDebugOverlay(canvas, content);
    } else if (content.audioLevels.empty()) {
        canvas.fillOval(size.width() / 2 - 3, size.height() / 2 - 3, 6, content.barColor);
    } else {
        drawBars(canvas, memory.pictures, content);
        drawRecordingMark(canvas, memory.pictures);
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
