// The least that a tray program with Qt can be: what Nulo's start and its idling are held against.

#include <QApplication>
#include <QMenu>
#include <QPixmap>
#include <QSystemTrayIcon>
#include <QTimer>
#include <cstdio>

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    QPixmap picture(22, 22);
    picture.fill(Qt::black);
    QMenu menu;
    menu.addAction("Quit", &application, &QCoreApplication::quit);
    QSystemTrayIcon icon(picture);
    icon.setContextMenu(&menu);
    icon.show();
    QTimer::singleShot(0, [] {
        std::puts("ready");
        std::fflush(stdout);
    });
    return QApplication::exec();
}
