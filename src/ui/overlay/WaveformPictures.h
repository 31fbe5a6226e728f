#pragma once

#include <QCache>
#include <QColor>
#include <QImage>
#include <QPainter>
#include <QSizeF>
#include <functional>

namespace nulo {

/// Pictures of those parts of an overlay that look the same in many drawings: copying their pixels
/// costs a small part of filling their outlines or setting their text again. Main thread.
class WaveformPictures {
  public:
    /// What all parts of an overlay have in common.
    struct Panel {
        QSizeF size;
        double pixelsPerPoint = 1;
        QColor background;
        QColor barColor;
        bool operator==(const Panel&) const = default;
    };
    enum class Part { topEdge, bottomEdge, bar, recordingMark };

    WaveformPictures();

    /// Says whose parts are drawn next; the pictures of another panel are forgotten.
    void usePanel(const Panel& panel);

    /// Shows in `box` what `draw` draws, a function of a painter whose origin is the box's corner:
    /// calls it, or copies what it drew for the same part, level and place between pixels before.
    template <typename Draw>
    void draw(QPainter& painter, Part part, float level, const QRectF& box, Draw draw) {
        const double scale = m_panel.pixelsPerPoint;
        const QRectF exact(box.topLeft() * scale, box.size() * scale);
        const QRect pixels = exact.toAlignedRect();
        const Key key{part, level, exact.topLeft() - pixels.topLeft()};
        const QImage* picture = m_pictures.object(key);
        if (!picture)
            picture = add(key, pixels.size(), draw);
        painter.drawImage(QPointF(pixels.topLeft()) / scale, *picture);
    }

  private:
    struct Key {
        Part part;
        float level;
        QPointF offset;  ///< of the box from the pixels' edges
        friend bool operator==(const Key& a, const Key& b) {
            return a.part == b.part && a.level == b.level && a.offset == b.offset;
        }
        friend size_t qHash(const Key& key, size_t seed) {
            return qHashMulti(seed, static_cast<int>(key.part), key.level, key.offset.x(),
                              key.offset.y());
        }
    };

    const QImage* add(const Key& key, QSize size, const std::function<void(QPainter&)>& draw);

    Panel m_panel;
    QCache<Key, QImage> m_pictures;
};

}  // namespace nulo
