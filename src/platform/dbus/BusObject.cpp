#include "platform/dbus/BusObject.h"

#include <QDBusError>
#include <QDBusVariant>

namespace nulo {
namespace {

const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");

}  // namespace

BusObject::BusObject(QDBusConnection connection, QString path, QString interface)
    : m_connection(std::move(connection)),
      m_path(std::move(path)),
      m_interface(std::move(interface)) {
    m_connection.registerVirtualObject(m_path, this);
}

BusObject::~BusObject() {
    m_connection.unregisterObject(m_path);
}

void BusObject::emitSignal(const QString& name, const QVariantList& arguments) const {
    QDBusMessage signal = QDBusMessage::createSignal(m_path, m_interface, name);
    signal.setArguments(arguments);
    m_connection.send(signal);
}

bool BusObject::handleMessage(const QDBusMessage& message, const QDBusConnection& connection) {
    const QString interface = message.interface();
    QDBusMessage reply;
    if (interface == propertiesInterface)
        reply = answerProperties(message);
    else if (interface == m_interface || interface.isEmpty())
        reply = answer(message);  // nothing of this object may be touched from here on
    if (message.isDelayedReply())
        return true;
    if (reply.type() == QDBusMessage::InvalidMessage)
        return false;  // introspection and errors are the library's
    if (message.isReplyRequired())
        connection.send(reply);
    return true;
}

QDBusMessage BusObject::answerProperties(const QDBusMessage& message) const {
    const QVariantList arguments = message.arguments();
    const auto isFor = [&](const char* member, const char* signature) {
        return message.member() == QLatin1String(member) &&
               message.signature() == QLatin1String(signature);
    };
    if (isFor("GetAll", "s"))
        return message.createReply(QVariant(properties()));
    if (isFor("Get", "ss")) {
        const QVariantMap all = properties();
        const auto found = all.constFind(arguments[1].toString());
        if (found != all.constEnd())
            return message.createReply(QVariant::fromValue(QDBusVariant(*found)));
        return message.createErrorReply(QDBusError::UnknownProperty, "No such property");
    }
    if (isFor("Set", "ssv"))
        return message.createErrorReply(QDBusError::PropertyReadOnly, "Properties are read-only");
    return {};
}

}  // namespace nulo
