#include "ui/settings/SettingsLayout.h"

#include <QFont>
#include <QResizeEvent>

namespace nulo {
namespace {

/// Tells its height for the width that it has. With a label that leaves it to the layout to ask for
/// every width, nothing around it could shrink below its preferred height.
class WrappedLabel final : public QLabel {
  public:
    using QLabel::QLabel;

    bool hasHeightForWidth() const override { return false; }
    QSize sizeHint() const override { return {QLabel::sizeHint().width(), wrappedHeight()}; }
    QSize minimumSizeHint() const override { return {60, wrappedHeight()}; }

  protected:
    void resizeEvent(QResizeEvent* event) override {
        QLabel::resizeEvent(event);
        if (event->size().width() != event->oldSize().width())
            updateGeometry();
    }

  private:
    int wrappedHeight() const { return heightForWidth(width()); }
};

}  // namespace

QLabel* makeTitle(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 1.2);
    font.setWeight(QFont::DemiBold);
    label->setFont(font);
    return label;
}

QLabel* makeSecondaryLabel(const QString& text, QWidget* parent) {
    auto* label = new WrappedLabel(text, parent);
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
