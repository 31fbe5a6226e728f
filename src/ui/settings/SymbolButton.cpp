#include "ui/settings/SymbolButton.h"

#include <QPainter>

#include "ui/settings/SettingsStyle.h"

namespace nulo {

SymbolButton::SymbolButton(Symbol symbol, const QString& name, QWidget* parent)
    : QToolButton(parent), m_symbol(symbol) {
    setAccessibleName(name);
    setToolTip(name);
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setAttribute(Qt::WA_Hover);
}

void SymbolButton::paintEvent(QPaintEvent*) {
    const SettingsColors colors = settingsColors();
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
