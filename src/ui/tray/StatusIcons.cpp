#include "ui/tray/StatusIcons.h"

#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace nulo {
namespace {

constexpr double units = 18;  // across the icon, whatever its width in pixels
constexpr double barWidth = 2;
constexpr double barPitch = 3.5;
constexpr double firstBar = 1;
constexpr double cornerRadius = 1;

using Heights = std::array<double, 5>;

const QColor nearWhite(250, 250, 250);
const QColor outline(0, 0, 0, 200);
const QColor red(255, 59, 48);
const QColor orange(255, 149, 0);

/// The whole number nearest to `length` that leaves equal whole margins in `width`; at least 1.
double centrable(double length, int width) {
    const int parity = width % 2;
    const double nearest = 2 * std::round((length - parity) / 2) + parity;
    return std::max(nearest, parity ? 1.0 : 2.0);
}

/// Where the five bars stand at one width, in pixels. Bars and gaps are whole pixels, all gaps
/// equal, so that small icons are not blurred; where that would move the outer bars by a pixel or
/// more, as at 18, the exact places are kept.
class BarGrid {
  public:
    explicit BarGrid(int width) : m_width(width), m_scale(width / units) {
        const double bar = centrable(barWidth * m_scale, width);
        const double pitch = std::round(barPitch * m_scale);
        const double first = (width - 4 * pitch - bar) / 2;
        m_isWhole = std::abs(first - firstBar * m_scale) < 1 && pitch > bar;
        m_bar = m_isWhole ? bar : barWidth * m_scale;
        m_pitch = m_isWhole ? pitch : barPitch * m_scale;
        m_first = m_isWhole ? first : firstBar * m_scale;
    }

    QRectF bar(int index, double height) const {
        const double pixels = m_isWhole ? centrable(height * m_scale, m_width) : height * m_scale;
        return {m_first + index * m_pitch, (m_width - pixels) / 2, m_bar, pixels};
    }
    double radius() const { return m_bar * cornerRadius / barWidth; }

  private:
    int m_width;
    double m_scale;
    bool m_isWhole;
    double m_bar;
    double m_pitch;
    double m_first;
};

QPainterPath barsPath(int width, const Heights& heights) {
    const BarGrid grid(width);
    QPainterPath path;
    for (int i = 0; i < 5; ++i)
        path.addRoundedRect(grid.bar(i, heights[i]), grid.radius(), grid.radius());
    return path;
}

/// In the lower right corner: a dot and a stroke above it.
QPainterPath exclamationMark(int width) {
    const double scale = width / units;
    // The places are given from the bottom.
    const auto place = [&](double x, double y, double w, double h) {
        return QRectF(x * scale, width - (y + h) * scale, w * scale, h * scale);
    };
    QPainterPath path;
    path.addEllipse(place(units - 5, 2, 3, 3));
    path.addRoundedRect(place(units - 4.5, 6, 2, 7), cornerRadius * scale, cornerRadius * scale);
    return path;
}

template <typename Paint>
IconPixels drawn(int width, Paint paint) {
    width = std::clamp(width, 1, 1024);
    QImage image(width, width, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    paint(painter, width);
    painter.end();
    image.convertTo(QImage::Format_ARGB32);
    IconPixels pixels{width, std::vector<std::uint32_t>(std::size_t(width) * width)};
    for (int y = 0; y < width; ++y)
        std::memcpy(&pixels.argb[std::size_t(y) * width], image.constScanLine(y),
                    std::size_t(width) * sizeof(std::uint32_t));
    return pixels;
}

IconPixels drawIdle(int width) {
    return drawn(width, [](QPainter& painter, int pixels) {
        const QPainterPath bars = barsPath(pixels, {4, 9, 14, 9, 4});
        // A pixel around each bar, half of the gap where gaps are narrow.
        painter.strokePath(bars, QPen(outline, std::max(2.0, pixels / units * 1.5), Qt::SolidLine,
                                      Qt::RoundCap, Qt::RoundJoin));
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.fillPath(bars, nearWhite);
    });
}

IconPixels drawRecording(int width) {
    return drawn(width, [](QPainter& painter, int pixels) {
        painter.fillPath(barsPath(pixels, {6, 12, 16, 12, 6}), red);
    });
}

IconPixels drawWarning(int width) {
    return drawn(width, [](QPainter& painter, int pixels) {
        QColor faint = orange;
        faint.setAlphaF(0.4f);
        painter.fillPath(barsPath(pixels, {3, 5, 7, 5, 3}), faint);
        painter.fillPath(exclamationMark(pixels), orange);
    });
}

}  // namespace

StatusIcon idleIcon() {
    return {drawIdle, "Nulo", false, "org.nulo.Nulo-symbolic"};
}

StatusIcon recordingIcon() {
    return {drawRecording, "Nulo", false, "org.nulo.Nulo-recording-symbolic"};
}

StatusIcon warningIcon() {
    return {drawWarning, "Nulo - Accessibilite requise", true, "org.nulo.Nulo-warning-symbolic"};
}

}  // namespace nulo
