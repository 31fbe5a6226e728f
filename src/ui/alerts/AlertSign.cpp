#include "ui/alerts/AlertSign.h"

#include <QPainter>
#include <QPainterPath>
#include <QPolygonF>

#include "ui/WindowStyle.h"

namespace nulo {
namespace {

constexpr int side = 40;
constexpr QRectF stem(18, 14, 4, 12);  // of the exclamation mark
constexpr QRectF dot(17.7, 28.5, 4.6, 4.6);
const QColor amber(246, 190, 0);
const QColor onAmber(40, 30, 0);

void drawMark(QPainter& painter, const QColor& color) {
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawRoundedRect(stem, 2, 2);
    painter.drawEllipse(dot);
}

void drawTriangle(QPainter& painter) {
    painter.setBrush(amber);
    painter.setPen(QPen(amber, 6, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));  // rounds corners
    painter.drawPolygon(QPolygonF({{20, 6}, {36, 34}, {4, 34}}));
    drawMark(painter, onAmber);
}

void drawDisc(QPainter& painter, const WindowColors& colors) {
    painter.setPen(Qt::NoPen);
    painter.setBrush(colors.accent);
    painter.drawEllipse(QRectF(1, 1, side - 2, side - 2));
    // The same mark, upside down.
    painter.translate(side, side + 1.5);
    painter.rotate(180);
    drawMark(painter, colors.accentText);
}

}  // namespace

AlertSign::AlertSign(AlertContent::Style style, QWidget* parent) : QWidget(parent), m_style(style) {
    setFixedSize(side, side);
}

void AlertSign::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (m_style == AlertContent::Style::warning)
        drawTriangle(painter);
    else
        drawDisc(painter, windowColors());
}

}  // namespace nulo
