#include "ui/settings/SettingsWindow.h"

#include <QGuiApplication>
#include <QMargins>
#include <QScreen>
#include <QWindow>
#include <utility>

#include "ui/settings/SettingsView.h"

namespace nulo {
namespace {

constexpr QSize usualSize(580, 620);
constexpr QSize leastSize(550, 560);
// What a window manager puts around the window. It says so only when the window is on the screen,
// where its place is settled already; so this is as much as any of the usual ones takes.
constexpr QMargins windowFrame(6, 40, 6, 6);

QSize roomOn(const QRect& available) {
    return available.marginsRemoved(windowFrame).size();
}

}  // namespace

QRect settingsPlace(const QRect& available) {
    QRect place(QPoint(), usualSize.boundedTo(roomOn(available)));
    place.moveCenter(available.marginsRemoved(windowFrame).center());
    return place;
}

std::unique_ptr<QWidget> makeSettingsWindow(const AppConfig& config, SettingsHost host) {
    auto window = std::make_unique<SettingsView>(config, std::move(host));
    window->setWindowTitle("Nulo - Reglages");
    window->setWindowFlags(Qt::Window | Qt::WindowTitleHint | Qt::WindowSystemMenuHint |
                           Qt::WindowMinimizeButtonHint | Qt::WindowCloseButtonHint);
    window->setAttribute(Qt::WA_QuitOnClose, false);
    const auto fitOn = [view = window.get()](const QScreen* screen) {
        if (!screen)
            return;
        const QSize room = roomOn(screen->availableGeometry());
        view->setMinimumSize(leastSize.boundedTo(room));
        view->resize(view->size().boundedTo(room));
    };
    if (const QScreen* screen = QGuiApplication::primaryScreen()) {
        window->setGeometry(settingsPlace(screen->availableGeometry()));
        fitOn(screen);
    }
    window->winId();  // makes the window handle, which alone tells of another screen
    QObject::connect(window->windowHandle(), &QWindow::screenChanged, window.get(), fitOn);
    return window;
}

}  // namespace nulo
