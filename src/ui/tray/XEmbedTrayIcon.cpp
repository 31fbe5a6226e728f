#include "ui/tray/XEmbedTrayIcon.h"

#include <QCursor>
#include <QGuiApplication>
#include <QIconEngine>
#include <QPainter>
#include <utility>

namespace nulo {
namespace {

/// Has the icon drawn for the very width that is asked for.
class DrawnIcon final : public QIconEngine {
  public:
    explicit DrawnIcon(std::function<IconPixels(int)> draw) : m_draw(std::move(draw)) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode, QIcon::State) override {
        const double scale = painter->device()->devicePixelRatioF();
        const int width = static_cast<int>(qMin(rect.width(), rect.height()) * scale);
        if (width <= 0)
            return;
        const IconPixels pixels = m_draw(width);
        QRect target({0, 0},
                     QSize(rect.height(), rect.height()).boundedTo({rect.width(), rect.width()}));
        target.moveCenter(rect.center());
        painter->drawImage(target, imageOf(pixels));
    }
    QPixmap pixmap(const QSize& size, QIcon::Mode, QIcon::State) override {
        const int width = qMin(size.width(), size.height());
        return width > 0 ? QPixmap::fromImage(imageOf(m_draw(width))) : QPixmap();
    }
    QIconEngine* clone() const override { return new DrawnIcon(*this); }

  private:
    static QImage imageOf(const IconPixels& pixels) {
        const auto* const bytes = reinterpret_cast<const uchar*>(pixels.argb.data());
        return QImage(bytes, pixels.width, pixels.width, QImage::Format_ARGB32).copy();
    }

    std::function<IconPixels(int)> m_draw;
};

}  // namespace

XEmbedTrayIcon::XEmbedTrayIcon() {
    QObject::connect(&m_menu, &QMenu::aboutToShow, &m_menu, [this] {
        if (const auto aboutToShow = onAboutToShow)
            aboutToShow();
        m_menu.fill(m_entries);
    });
    QObject::connect(&m_icon, &QSystemTrayIcon::activated, &m_menu,
                     [this](QSystemTrayIcon::ActivationReason reason) {
                         if (reason == QSystemTrayIcon::Trigger)
                             m_menu.popup(QCursor::pos());
                     });
    m_icon.setContextMenu(&m_menu);
}

void XEmbedTrayIcon::setIcon(StatusIcon icon) {
    m_icon.setIcon(QIcon(new DrawnIcon(icon.draw)));
    const std::string detail = icon.detail.empty() ? "" : "\n" + icon.detail;
    m_icon.setToolTip(QString::fromStdString(icon.description + detail));
    m_icon.setVisible(true);  // the toolkit shows none without a picture
}

void XEmbedTrayIcon::setMenu(Menu menu) {
    m_entries = std::move(menu);
    if (m_menu.isVisible())
        m_menu.fill(m_entries);
}

bool XEmbedTrayIcon::isShown() const {
    return m_icon.isVisible() && QSystemTrayIcon::isSystemTrayAvailable();
}

}  // namespace nulo
