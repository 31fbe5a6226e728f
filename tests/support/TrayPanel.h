#pragma once

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QStringList>

#include "platform/dbus/DBusMenuTypes.h"
#include "support/QtProgram.h"
#include "support/TestBus.h"

namespace nulo {

/// What a panel does: the watcher that items register with, and the host that reads and clicks
/// them. On a bus connection of its own, as if it were another program. One at a time; it answers
/// while a QCoreApplication processes events.
class Panel final : private QDBusVirtualObject {
  public:
    explicit Panel(bool hasHost = true) : m_hasHost(hasHost) {
        dbusmenu::registerTypes();
        m_connection.registerVirtualObject("/StatusNotifierWatcher", this);
        m_connection.registerService(watcher);
    }
    /// As if it had crashed: its names go with its connection.
    ~Panel() override { QDBusConnection::disconnectFromBus(connectionName); }

    bool isRegistered() const { return !m_items.isEmpty(); }
    int hostQuestions = 0;
    void hostAppears() {
        m_hasHost = true;
        m_connection.send(QDBusMessage::createSignal("/StatusNotifierWatcher", watcher,
                                                     "StatusNotifierHostRegistered"));
    }

    /// Calls the registered item; the reply may be an error.
    QDBusMessage call(const QString& path, const QString& interface, const QString& method,
                      const QVariantList& arguments) {
        auto message = QDBusMessage::createMethodCall(m_items.value(0), path, interface, method);
        message.setArguments(arguments);
        QDBusPendingCall pending = m_connection.asyncCall(message, 10'000);
        processUntil([&] { return pending.isFinished(); });
        return pending.reply();
    }
    QDBusMessage menuCall(const QString& method, const QVariantList& arguments) {
        return call("/MenuBar", "com.canonical.dbusmenu", method, arguments);
    }
    QVariant itemProperty(const QString& name) {
        return call("/StatusNotifierItem", "org.freedesktop.DBus.Properties", "Get",
                    {QStringLiteral("org.kde.StatusNotifierItem"), name})
            .arguments()
            .value(0)
            .value<QDBusVariant>()
            .variant();
    }

    struct Row {
        int id;
        QVariantMap properties;
        QString label() const { return properties.value("label").toString(); }
        bool isChecked() const { return properties.value("toggle-state").toInt() == 1; }
    };
    QList<Row> rows(const QStringList& properties = {}) {
        const QDBusMessage reply = menuCall("GetLayout", {0, -1, properties});
        const auto root =
            qdbus_cast<dbusmenu::Layout>(reply.arguments().value(1).value<QDBusArgument>());
        QList<Row> found;
        for (const QVariant& child : root.children) {
            const auto row = child.value<dbusmenu::Layout>();
            found.append({row.id, row.properties});
        }
        return found;
    }
    Row row(const QString& label) {
        for (const Row& candidate : rows())
            if (candidate.label() == label)
                return candidate;
        return {-1, {}};
    }
    /// Opens the menu: whether it must be read again.
    bool open() { return menuCall("AboutToShow", {0}).arguments().value(0).toBool(); }
    /// The error's name, nothing for a click that was taken.
    QString click(int id) {
        return menuCall("Event", {id, "clicked", QVariant::fromValue(QDBusVariant(0)), 0u})
            .errorName();
    }

  private:
    static constexpr const char* connectionName = "panel";
    static constexpr const char* watcher = "org.kde.StatusNotifierWatcher";

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        if (message.member() == "RegisterStatusNotifierItem") {
            m_items.append(message.arguments().value(0).toString());
            return connection.send(message.createReply());
        }
        ++hostQuestions;
        return connection.send(message.createReply(QVariant::fromValue(QDBusVariant(m_hasHost))));
    }

    QDBusConnection m_connection =
        QDBusConnection::connectToBus(QString::fromStdString(testBus().address()), connectionName);
    bool m_hasHost;
    QStringList m_items;
};

}  // namespace nulo
