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
        QDBusConnection system = connection(QDBusConnection::SystemBus);
        // A lock of another session is taken for one of this: that costs no more than a chord.
        listen(system, "org.freedesktop.login1.Session", "Lock");
        listen(system, "org.freedesktop.login1.Manager", "PrepareForSleep");
        QDBusConnection session = connection(QDBusConnection::SessionBus);
        for (const char* desktop : {"freedesktop", "gnome", "cinnamon", "mate", "xfce"})
            listen(session, QString("org.%1.ScreenSaver").arg(desktop), "ActiveChanged");
    }
    ~BusSessionLockWatch() override {
        for (const auto bus : {QDBusConnection::SystemBus, QDBusConnection::SessionBus})
            QDBusConnection::disconnectFromBus(name(bus));
    }

  private:
    static QString name(QDBusConnection::BusType bus) {
        return bus == QDBusConnection::SystemBus ? "lock-system" : "lock-session";
    }
    // Makes a connection of its own, because the shared one stays without a bus if there was none
    // when it was first asked for.
    static QDBusConnection connection(QDBusConnection::BusType bus) {
        return QDBusConnection::connectToBus(bus, name(bus));
    }
    void listen(QDBusConnection& bus, const QString& interface, const char* signal) {
        bus.connect({}, {}, interface, signal, &m_announced, SLOT(start()));
    }

    QTimer m_announced;  // a receiver that Qt knows the slots of
};

}  // namespace

std::unique_ptr<SessionLockWatch> watchSessionLock(std::function<void()> callback) {
    return std::make_unique<BusSessionLockWatch>(std::move(callback));
}

}  // namespace nulo
