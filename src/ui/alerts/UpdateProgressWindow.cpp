#include "ui/alerts/UpdateProgressWindow.h"

#include <QCloseEvent>
#include <QFontMetrics>
#include <QKeyEvent>
#include <QLabel>
#include <QProgressBar>
#include <utility>

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

UpdateProgressWindow::UpdateProgressWindow(const QString& version, std::function<void()> onCancel)
    : QWidget(nullptr, Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint),
      m_onCancel(std::move(onCancel)) {
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

void UpdateProgressWindow::keyPressEvent(QKeyEvent* event) {
    if (event->matches(QKeySequence::Cancel))
        cancelLater();
    else
        QWidget::keyPressEvent(event);
}

void UpdateProgressWindow::closeEvent(QCloseEvent* event) {
    // The program's own end closes every window and waits for each to agree.
    event->setAccepted(!event->spontaneous());
    if (event->spontaneous())
        cancelLater();
}

void UpdateProgressWindow::cancelLater() {
    QMetaObject::invokeMethod(this, m_onCancel, Qt::QueuedConnection);
}

}  // namespace nulo
