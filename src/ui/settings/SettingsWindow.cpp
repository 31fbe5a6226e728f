#include "ui/settings/SettingsWindow.h"

#include <QGuiApplication>
#include <QScreen>
#include <utility>

#include "ui/settings/SettingsView.h"

namespace nulo {

std::unique_ptr<QWidget> makeSettingsWindow(const AppConfig& config, SettingsHost host) {
    auto window = std::make_unique<SettingsView>(config, std::move(host));
    window->setWindowTitle("Nulo - Reglages");
    window->setWindowFlags(Qt::Window | Qt::WindowTitleHint | Qt::WindowSystemMenuHint |
                           Qt::WindowMinimizeButtonHint | Qt::WindowCloseButtonHint);
    window->setAttribute(Qt::WA_QuitOnClose, false);
    QRect frame(0, 0, 580, 620);
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        frame.moveCenter(screen->availableGeometry().center());
    window->setGeometry(frame);
    return window;
}

}  // namespace nulo
