#include "platform/dbus/SessionLock.h"

#include <QDBusConnection>
#include <QTimer>

namespace nulo {
namespace {

class BusSessionLockWatch final : public SessionLockWatch {
  public:
    explicit BusSessionLockWatch(std::function<void()> callback) {
        m_announced.setSingleShot(true);
        QObject::connect(&m_announced, &QTimer::timeout, &m_announced, std::move(callback));
        // A lock of another session is taken for one of this: that costs no more than a chord.
        listen(QDBusConnection::systemBus(), "org.freedesktop.login1.Session", "Lock");
        listen(QDBusConnection::systemBus(), "org.freedesktop.login1.Manager", "PrepareForSleep");
        for (const char* desktop : {"freedesktop", "gnome", "cinnamon", "mate", "xfce"})
            listen(QDBusConnection::sessionBus(), QString("org.%1.ScreenSaver").arg(desktop),
                   "ActiveChanged");
    }

  private:
    void listen(QDBusConnection bus, const QString& interface, const QString& signal) {
        bus.connect({}, {}, interface, signal, &m_announced, SLOT(start()));
    }

    QTimer m_announced;  // a receiver that Qt knows the slots of
};

}  // namespace

std::unique_ptr<SessionLockWatch> watchSessionLock(std::function<void()> callback) {
    return std::make_unique<BusSessionLockWatch>(std::move(callback));
}

}  // namespace nulo
