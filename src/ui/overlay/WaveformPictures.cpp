#include "ui/overlay/WaveformPictures.h"

namespace nulo {
namespace {

/// Enough for a row of bars at each place that a bar takes between two pixels. There are two such
/// places where a point is a pixel, because each new level moves a growing row by 2.5 points.
constexpr int maxPictures = 300;

/// Qt hands a shape of more than 95 pieces of pixel rows to a pool of threads; waking those costs
/// far more than filling anything of the overlay.
constexpr int rowsFilledAtOnce = 20;

}  // namespace

WaveformPictures::WaveformPictures() : m_pictures(maxPictures) {}

void WaveformPictures::usePanel(const Panel& panel) {
    if (panel == m_panel)
        return;
    m_panel = panel;
    m_pictures.clear();
}

const QImage* WaveformPictures::add(const Key& key, QSize size,
                                    const std::function<void(QPainter&)>& draw) {
    const double scale = m_panel.pixelsPerPoint;
    // A bar stands on the background alone; without transparency its pixels are copied as they are.
    const bool isOpaque = key.part == Part::bar;
    QImage picture(size, isOpaque ? QImage::Format_RGB32 : QImage::Format_ARGB32_Premultiplied);
    picture.fill(isOpaque ? m_panel.background : Qt::transparent);
    {
        QPainter painter(&picture);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        for (int row = 0; row < size.height(); row += rowsFilledAtOnce) {
            painter.resetTransform();
            painter.setClipRect(0, row, size.width(), rowsFilledAtOnce);
            painter.setTransform(QTransform(scale, 0, 0, scale, key.offset.x(), key.offset.y()));
            draw(painter);
        }
    }
    // An image that was painted on keeps what the painting needed, many times its own size.
    auto* const added = new QImage(picture.copy());
    added->setDevicePixelRatio(scale);
    m_pictures.insert(key, added);
    return added;
}

}  // namespace nulo
