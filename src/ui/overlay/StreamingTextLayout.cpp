#include "ui/overlay/StreamingTextLayout.h"

#include <QFontMetricsF>
#include <QTextOption>
#include <algorithm>

#include "ui/overlay/OverlayFonts.h"

namespace nulo {
namespace {

constexpr int fontSize = 12;
constexpr double lineSpacing = 2;
/// A paragraph of more lines is split, so that appending to it lays only its last lines out again.
constexpr int maxLinesOfLastPiece = 48;
/// Laid out at once: the time that QTextLayout takes for a text without spaces grows with the
/// square of its length, a minute and more for a million characters.
constexpr qsizetype maxCharactersOfPiece = 4096;
/// More than the one line that appended text can still break differently.
constexpr int linesKeptOpen = 16;

QFont streamingFont() {
    return systemFont(fontSize, QFont::Normal);
}

bool endsLine(QChar character) {
    return character == u'\n' || character == u'\r' || character == QChar::LineSeparator ||
           character == QChar::ParagraphSeparator;
}

}  // namespace

void StreamingTextLayout::update(const std::string& text, double width) {
    if (width == m_width && text == m_text)
        return;
    QString string = QString::fromUtf8(text);
    const bool isAppended = width == m_width && !m_pieces.empty() && string.startsWith(m_string);
    m_text = text;
    m_string = std::move(string);
    m_width = width;

    qsizetype start = 0;
    Qt::LayoutDirection direction = Qt::LayoutDirectionAuto;
    if (isAppended) {
        start = m_pieces.back().start;
        if (start > 0 && !endsLine(m_string[start - 1]))
            direction = m_pieces.back().direction;  // goes on with a paragraph
        m_pieces.pop_back();
    } else {
        m_pieces.clear();
    }
    layOutFrom(start, direction);
    m_height =
        m_pieces.empty() ? QFontMetricsF(streamingFont()).lineSpacing() : nextTop() - lineSpacing;
}

void StreamingTextLayout::layOutFrom(qsizetype start, Qt::LayoutDirection direction) {
    while (start < m_string.size()) {
        const auto end = std::find_if(m_string.cbegin() + start, m_string.cend(), endsLine);
        const qsizetype length = end - m_string.cbegin() - start;
        if (direction == Qt::LayoutDirectionAuto)
            direction = QStringView(m_string).mid(start, length).isRightToLeft() ? Qt::RightToLeft
                                                                                 : Qt::LeftToRight;
        layOutParagraph(start, length, direction);
        direction = Qt::LayoutDirectionAuto;
        start += length;
        if (QStringView(m_string).mid(start).startsWith(u"\r\n"))
            ++start;
        ++start;
    }
}

void StreamingTextLayout::layOutParagraph(qsizetype start, qsizetype length,
                                          Qt::LayoutDirection direction) {
    qsizetype atOnce = maxCharactersOfPiece;
    while (true) {
        addPiece(start, std::min(length, atOnce), direction);
        Piece& piece = m_pieces.back();
        const bool isWhole = length <= atOnce;
        if (isWhole && piece.lineCount <= maxLinesOfLastPiece)
            return;
        if (piece.lineCount <= linesKeptOpen) {  // characters that are hardly seen
            m_pieces.pop_back();
            atOnce *= 2;
            continue;
        }
        piece.lineCount -= linesKeptOpen;
        piece.length = piece.layout->lineAt(piece.lineCount).textStart();
        start += piece.length;
        length -= piece.length;
        atOnce = maxCharactersOfPiece;
    }
}

void StreamingTextLayout::addPiece(qsizetype start, qsizetype length,
                                   Qt::LayoutDirection direction) {
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    option.setTextDirection(direction);
    option.setAlignment(direction == Qt::RightToLeft ? Qt::AlignRight : Qt::AlignLeft);
    auto layout = std::make_unique<QTextLayout>(m_string.mid(start, length), streamingFont());
    layout->setTextOption(option);
    layout->setCacheEnabled(true);  // or every drawing shapes the text again
    layout->beginLayout();
    double y = 0;
    for (QTextLine line = layout->createLine(); line.isValid(); line = layout->createLine()) {
        line.setLeadingIncluded(true);
        line.setLineWidth(m_width);
        line.setPosition({0, y});
        y += line.height() + lineSpacing;
    }
    layout->endLayout();
    const int lineCount = layout->lineCount();
    const double top = nextTop();
    m_pieces.push_back({std::move(layout), start, length, lineCount, top, direction});
}

double StreamingTextLayout::nextTop() const {
    if (m_pieces.empty())
        return 0;
    const Piece& last = m_pieces.back();
    const QTextLine line = last.layout->lineAt(last.lineCount - 1);
    return last.top + line.y() + line.height() + lineSpacing;
}

QPointF StreamingTextLayout::lastGlyph() const {
    if (m_pieces.empty())
        return {0, m_height};
    const Piece& last = m_pieces.back();
    const QTextLine line = last.layout->lineAt(last.lineCount - 1);
    const int end = static_cast<int>(last.length);
    if (endsLine(m_string.back()))
        return {line.cursorToX(end), m_height};
    const int glyph = last.layout->previousCursorPosition(end);
    return {std::min(line.cursorToX(glyph), line.cursorToX(glyph, QTextLine::Trailing)), m_height};
}

void StreamingTextLayout::draw(QPainter& painter, QPointF topLeft, const QRectF& visible) const {
    for (auto piece = m_pieces.rbegin(); piece != m_pieces.rend(); ++piece) {
        const QPointF origin = topLeft + QPointF(0, piece->top);
        for (int i = piece->lineCount - 1; i >= 0; --i) {
            const QTextLine line = piece->layout->lineAt(i);
            const double top = origin.y() + line.y();
            if (top + line.height() < visible.top())
                return;
            if (top < visible.bottom())
                line.draw(&painter, origin);
        }
    }
}

}  // namespace nulo
