#pragma once

#include <QPainter>
#include <QString>
#include <QTextLayout>
#include <memory>
#include <string>
#include <vector>

namespace nulo {

/// The streamed text wrapped into lines, kept from one redraw to the next: an unchanged text costs
/// a comparison, an appended fragment only its last lines, however long the text has become.
///
/// Coordinates are the painter's (y grows downward) from the top left corner of the first line.
/// Main thread, with a QGuiApplication.
class StreamingTextLayout {
  public:
    /// Lays `text` out in lines of at most `width` points.
    void update(const std::string& text, double width);

    /// The height of all lines, with the spacing between them; an empty text is as high as its
    /// first line will be. A line feed at the very end opens no line of its own.
    double height() const { return m_height; }

    /// The bottom left corner of the last glyph's place: its left edge and its line's lower edge.
    /// A line feed is a glyph without width. The first line's start when the text is empty.
    QPointF lastGlyph() const;

    /// Draws the lines that cross `visible` with the painter's pen; `topLeft` is where the first
    /// line goes. `visible` is in the painter's coordinates.
    void draw(QPainter& painter, QPointF topLeft, const QRectF& visible) const;

  private:
    /// Some lines of one paragraph.
    struct Piece {
        std::unique_ptr<QTextLayout> layout;
        qsizetype start;  ///< in m_string
        qsizetype length;
        int lineCount;  ///< the layout may hold more lines, which belong to the next piece
        double top;
        Qt::LayoutDirection direction;
    };

    void layOutFrom(qsizetype start, Qt::LayoutDirection direction);
    /// Lays out one paragraph, or what is left of it, without its line feed.
    void layOutParagraph(qsizetype start, qsizetype length, Qt::LayoutDirection direction);
    void addPiece(qsizetype start, qsizetype length, Qt::LayoutDirection direction);
    double nextTop() const;

    std::string m_text;
    QString m_string;
    double m_width = -1;
    double m_height = 0;
    std::vector<Piece> m_pieces;
};

}  // namespace nulo
