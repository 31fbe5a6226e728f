#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <filesystem>

#include "base/Environment.h"
#include "keytap/Protocol.h"
#include "platform/Backends.h"
#include "platform/WaylandBackends.h"
#include "platform/session/BackendChoice.h"

namespace nulo {
namespace {

constexpr const char* portal = "org.freedesktop.portal.Desktop";

KeytapInstallation keytapInstallation() {
    std::error_code error;
    if (std::filesystem::exists(keytap::socketPath, error))
        return KeytapInstallation::on;
    for (const char* folder : {"/etc", "/usr/local/lib", "/usr/lib"})
        if (std::filesystem::exists(std::string(folder) + "/systemd/system/nulo-keytap.socket",
                                    error))
            return KeytapInstallation::off;
    return KeytapInstallation::none;
}

}  // namespace

bool portalIsOnTheBus() {
    // Not the shared connection: that stays without a bus if there was none when it was first
    // asked for.
    const QString name = "session-facts";
    bool isThere = false;
    if (const auto bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, name);
        bus.isConnected()) {
        const QDBusReply<QStringList> started = bus.interface()->registeredServiceNames();
        const QDBusReply<QStringList> startable = bus.interface()->activatableServiceNames();
        isThere = started.value().contains(portal) || startable.value().contains(portal);
    }
    QDBusConnection::disconnectFromBus(name);
    return isThere;
}

bool SessionFacts::isDesktop(const std::string& name) const {
    return (":" + desktop + ":").find(":" + name + ":") != std::string::npos;
}

SessionFacts sessionFacts() {
    return {.sessionType = environmentVariable("XDG_SESSION_TYPE"),
            .display = environmentVariable("DISPLAY"),
            .waylandDisplay = environmentVariable("WAYLAND_DISPLAY"),
            .desktop = environmentVariable("XDG_CURRENT_DESKTOP"),
            .swaySocket = environmentVariable("SWAYSOCK"),
            .keytap = keytapInstallation()};
}

std::string described(const SessionFacts& facts) {
    std::string line = facts.isWayland() ? "Wayland, display " + facts.waylandDisplay : "X11";
    if (!facts.display.empty())
        line += (facts.isWayland() ? ", XWayland on " : ", display ") + facts.display;
    return line;
}

void lookAtDisplays(SessionFacts& facts) {
    if (!facts.display.empty() && !x11DisplayAnswers(facts.display))
        facts.display.clear();
    if (facts.waylandDisplay.empty())
        return;
    if (auto offers = waylandOffers(facts.waylandDisplay))
        facts.waylandOffers = std::move(*offers);
    else
        facts.waylandDisplay.clear();
}

}  // namespace nulo
