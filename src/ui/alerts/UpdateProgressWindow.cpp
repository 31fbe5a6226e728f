#include "ui/alerts/UpdateProgressWindow.h"

#include <QCloseEvent>
#include <QFontMetrics>
#include <QLabel>
#include <QProgressBar>

namespace nulo {
namespace {

constexpr QSize windowSize(320, 100);
constexpr QRect labelFrame(20, 25, 280, 20);
constexpr QRect barFrame(40, 55, 240, 20);

/// The font, made smaller until a line of it fits.
QFont fittingFont(QFont font, int height) {
    while (QFontMetrics(font).height() > height && font.pointSizeF() > 6)
        font.setPointSizeF(font.pointSizeF() - 0.5);
    return font;
}

}  // namespace

UpdateProgressWindow::UpdateProgressWindow(const QString& version)
    : QWidget(nullptr, Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint) {
    setWindowTitle(QStringLiteral("Mise a jour Nulo"));
    setFixedSize(windowSize);
    const QString text = "Telechargement de Nulo " + version + "...";
    setAccessibleName(text.left(200));

    auto* label = new QLabel(this);
    label->setGeometry(labelFrame);
    label->setAlignment(Qt::AlignCenter);
    label->setTextFormat(Qt::PlainText);
    label->setFont(fittingFont(label->font(), labelFrame.height()));
    label->setText(
        label->fontMetrics().elidedText(text.left(1000), Qt::ElideMiddle, labelFrame.width()));
    label->setAccessibleName(text.left(200));

    auto* bar = new QProgressBar(this);
    bar->setGeometry(barFrame);
    bar->setRange(0, 0);  // how much is to come is not known
    bar->setTextVisible(false);
    bar->setAccessibleName(QStringLiteral("Telechargement"));
}

void UpdateProgressWindow::closeEvent(QCloseEvent* event) {
    // A window manager's shortcut would let the download go on unseen; the program's own end, which
    // closes every window and waits for each to agree, must not be held up.
    event->setAccepted(!event->spontaneous());
}

}  // namespace nulo
