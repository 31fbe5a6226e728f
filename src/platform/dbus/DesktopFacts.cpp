#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVariant>

#include "platform/Backends.h"

namespace nulo {
namespace {

constexpr auto trayWatcher = "org.kde.StatusNotifierWatcher";
constexpr auto notifications = "org.freedesktop.Notifications";
constexpr int longestWait = 1000;  // ms

bool trayIsShown(const QDBusConnection& bus) {
    auto call = QDBusMessage::createMethodCall(trayWatcher, "/StatusNotifierWatcher",
                                               "org.freedesktop.DBus.Properties", "Get");
    call << trayWatcher << "IsStatusNotifierHostRegistered";
    const auto values = bus.call(call, QDBus::Block, longestWait).arguments();
    return !values.empty() && values.front().value<QDBusVariant>().variant().toBool();
}

}  // namespace

DesktopFacts desktopFacts() {
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return {};
    const QDBusConnectionInterface& names = *bus.interface();
    return {.hasBus = true,
            .hasTray = names.isServiceRegistered(trayWatcher) && trayIsShown(bus),
            .hasNotifications = names.isServiceRegistered(notifications) ||
                                names.activatableServiceNames().value().contains(notifications),
            .nuloRuns = names.isServiceRegistered("org.nulo.Nulo")};
}

}  // namespace nulo
