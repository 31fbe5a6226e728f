#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusServiceWatcher>
#include <QString>
#include <memory>
#include <utility>

#include "hotkey/ReportedChord.h"
#include "platform/WaylandBackends.h"
#include "platform/dbus/PortalRequest.h"

namespace nulo {

/// As the portal's interface has them.
struct PortalShortcut {
    QString id;
    QVariantMap properties;
};
using PortalShortcutList = QList<PortalShortcut>;

QDBusArgument& operator<<(QDBusArgument& argument, const PortalShortcut& shortcut) {
    argument.beginStructure();
    argument << shortcut.id << shortcut.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, PortalShortcut& shortcut) {
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.properties;
    argument.endStructure();
    return argument;
}

}  // namespace nulo

Q_DECLARE_METATYPE(nulo::PortalShortcut)
Q_DECLARE_METATYPE(nulo::PortalShortcutList)

namespace nulo {
namespace {

constexpr const char* interface = "org.freedesktop.portal.GlobalShortcuts";
constexpr const char* sessionInterface = "org.freedesktop.portal.Session";
constexpr const char* connectionName = "portal-shortcuts";
constexpr const char* shortcutId = "push-to-talk";

/// Everything happens on main, where the bus is heard.
class PortalShortcuts final : public EventTapSource {
  public:
    PortalShortcuts(Print print, const Chord& chord)
        : m_print(std::move(print)),
          m_chordName(chord.name()),
          m_trigger(QString::fromStdString(
              chord.written({"CTRL", "ALT", "SHIFT", "LOGO"}, chord.symbol))),
          m_bus(QDBusConnection::connectToBus(QDBusConnection::SessionBus, connectionName)),
          m_signals([this](const QDBusMessage& signal) { heard(signal); }),
          m_watcher(portalService, m_bus, QDBusServiceWatcher::WatchForUnregistration) {
        qDBusRegisterMetaType<PortalShortcut>();
        qDBusRegisterMetaType<PortalShortcutList>();
        for (const char* name : {"Activated", "Deactivated"})
            m_signals.listen(m_bus, portalService, portalPath, interface, name);
        m_signals.listen(m_bus, portalService, {}, sessionInterface, "Closed");
        QObject::connect(&m_watcher, &QDBusServiceWatcher::serviceUnregistered, &m_watcher,
                         [this] { portalEnded(); });
        begin();
    }

    ~PortalShortcuts() override {
        m_request.reset();
        QDBusConnection::disconnectFromBus(connectionName);  // which ends the portal's session
    }

    bool isTrusted() override {
        if (std::exchange(m_portalHasEnded, false))
            begin();  // which starts it again
        return m_isBound;
    }
    bool isUndecided() override { return m_isAsking; }
    std::unique_ptr<EventTap> createTap(Handler handler) override {
        return m_isBound ? m_chord.makeTap(std::move(handler)) : nullptr;
    }
    void letGo() override { m_chord.setDown(false); }

  private:
    void begin() {
        // KDE's portal reads the shortcuts here, the others when they are bound.
        request("CreateSession", {},
                {{"session_handle_token", "nulo"}, {"shortcuts", QVariant::fromValue(wanted())}},
                [this](const QVariantMap& results) {
                    m_session = results.value("session_handle").toString();
                    bind();
                });
    }

    void bind() {
        request("BindShortcuts",
                {QVariant::fromValue(QDBusObjectPath(m_session)), QVariant::fromValue(wanted()),
                 QString()},
                {}, [this](const QVariantMap& results) { bound(results); });
    }

    void bound(const QVariantMap& results) {
        QString keys;
        for (const PortalShortcut& shortcut :
             qdbus_cast<PortalShortcutList>(results.value("shortcuts")))
            if (shortcut.id == shortcutId)
                keys = shortcut.properties.value("trigger_description").toString();
        m_isBound = true;
        m_chord.setEnabled(true);
        m_print(keys.isEmpty()
                    ? "No global shortcut: the desktop gives Nulo no keys, as another program may "
                      "have " +
                          m_chordName + ". Its keyboard settings change that."
                    : "[nulo] The desktop's name for the shortcut: " + keys.toStdString());
        if (onObstructed)
            onObstructed(keys.isEmpty());
    }

    PortalShortcutList wanted() const {
        return {
            {shortcutId, {{"description", "Hold to dictate"}, {"preferred_trigger", m_trigger}}}};
    }

    void request(const QString& method, QVariantList arguments, QVariantMap options,
                 std::function<void(const QVariantMap& results)> granted) {
        m_isAsking = true;
        m_request = std::make_unique<PortalRequest>(
            m_bus, interface, method, std::move(arguments), std::move(options),
            [this, granted = std::move(granted)](bool isGranted, const QVariantMap& results,
                                                 const QString& reason) {
                m_isAsking = false;
                if (isGranted)
                    granted(results);
                else  // it is not asked for again: that would be a dialog every two seconds
                    m_print("No global shortcut: the desktop's portal gives none (" +
                            reason.toStdString() + ")");
            });
    }

    void heard(const QDBusMessage& signal) {
        if (signal.member() == "Closed") {
            if (signal.path() == m_session)
                lose();
            return;
        }
        const QVariantList said = signal.arguments();
        if (said.size() >= 2 && said[0].value<QDBusObjectPath>().path() == m_session &&
            said[1].toString() == shortcutId)
            m_chord.setDown(signal.member() == "Activated");
    }

    void lose() {
        m_isBound = false;
        m_session.clear();
        m_chord.setEnabled(false);
        m_chord.setDown(false);
    }

    void portalEnded() {
        m_request.reset();
        m_isAsking = false;
        lose();
        m_portalHasEnded = true;
    }

    const Print m_print;
    const std::string m_chordName;
    const QString m_trigger;  // as desktops' portals write it
    QDBusConnection m_bus;
    BusSignals m_signals;
    QDBusServiceWatcher m_watcher;
    QString m_session;
    bool m_isAsking = false;
    bool m_isBound = false;
    bool m_portalHasEnded = false;
    ReportedChord m_chord;
    std::unique_ptr<PortalRequest> m_request;
};

}  // namespace

std::unique_ptr<EventTapSource> makePortalShortcuts(Print print, const Chord& chord) {
    return std::make_unique<PortalShortcuts>(std::move(print), chord);
}

}  // namespace nulo
