#include "ui/settings/SettingsLayout.h"

#include <QFont>

namespace nulo {

QLabel* makeTitle(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 1.2);
    font.setWeight(QFont::DemiBold);
    label->setFont(font);
    return label;
}

QLabel* makeSecondaryLabel(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setProperty("secondary", true);
    label->setWordWrap(true);
    return label;
}

QFrame* makeCard(QWidget* parent) {
    auto* card = new QFrame(parent);
    card->setProperty("card", true);
    return card;
}

QFrame* makeLine(Qt::Orientation orientation, QWidget* parent) {
    auto* line = new QFrame(parent);
    line->setProperty("line", true);
    if (orientation == Qt::Horizontal)
        line->setFixedHeight(1);
    else
        line->setFixedWidth(1);
    return line;
}

}  // namespace nulo
