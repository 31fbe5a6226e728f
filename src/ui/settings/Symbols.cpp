#include "ui/settings/Symbols.h"

#include <QPainter>
#include <QTransform>
#include <algorithm>

#include "ui/WindowStyle.h"

namespace nulo {
namespace {

// Shapes are cut out of one another at this size: the smaller they are, the coarser that is.
constexpr double unitSide = 1000;

/// A bar with round ends about the centre of a square of that side.
QPainterPath bar(double length, double y = 0, double degrees = 0) {
    constexpr double thickness = 115;
    QPainterPath path;
    path.addRoundedRect(QRectF(-length / 2, y - thickness / 2, length, thickness), thickness / 2,
                        thickness / 2);
    return QTransform().rotate(degrees).map(path);
}

QPainterPath unitPath(Symbol symbol) {
    QPainterPath path;
    switch (symbol) {
        case Symbol::xmarkCircleFill:
            path.addEllipse(QPointF(), unitSide / 2, unitSide / 2);
            return path.subtracted(bar(560, 0, 45).united(bar(560, 0, -45)));
        case Symbol::plus:
            return bar(800).united(bar(800, 0, 90));
        case Symbol::minus:
            return bar(800);
        case Symbol::menu:
            for (const double y : {-280, 0, 280})
                path.addPath(bar(800, y));
            return path;
    }
    return path;
}

}  // namespace

QPainterPath symbolPath(Symbol symbol, const QRectF& box) {
    const double scale = std::min(box.width(), box.height()) / unitSide;
    return QTransform::fromTranslate(box.center().x(), box.center().y())
        .scale(scale, scale)
        .map(unitPath(symbol));
}

SymbolButton::SymbolButton(Symbol symbol, const QString& name, QWidget* parent)
    : QToolButton(parent), m_symbol(symbol) {
    setAccessibleName(name);
    setToolTip(name);
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setAttribute(Qt::WA_Hover);
}

void SymbolButton::paintEvent(QPaintEvent*) {
    const WindowColors colors = windowColors();
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF box = QRectF(rect()).adjusted(1, 1, -1, -1);
    painter.setPen(hasFocus() ? QPen(colors.focus, 2) : QPen(Qt::NoPen));
    if (isEnabled() && (isDown() || underMouse()))
        painter.setBrush(isDown() ? colors.border : colors.fill);
    painter.drawRoundedRect(box, 6, 6);
    painter.setPen(Qt::NoPen);
    painter.setOpacity(isEnabled() ? 1 : 0.35);
    painter.setBrush(colors.text);
    QRectF symbolBox(0, 0, 14, 14);
    symbolBox.moveCenter(QRectF(rect()).center());
    painter.drawPath(symbolPath(m_symbol, symbolBox));
}

}  // namespace nulo
