#include "platform/dbus/DBusMenuTypes.h"

#include <QDBusMetaType>

namespace nulo::dbusmenu {

void registerTypes() {
    qDBusRegisterMetaType<Shortcut>();
    qDBusRegisterMetaType<Layout>();
    qDBusRegisterMetaType<ItemProperties>();
    qDBusRegisterMetaType<QList<ItemProperties>>();
    qDBusRegisterMetaType<RemovedProperties>();
    qDBusRegisterMetaType<QList<RemovedProperties>>();
    qDBusRegisterMetaType<Event>();
    qDBusRegisterMetaType<QList<Event>>();
}

QDBusArgument& operator<<(QDBusArgument& to, const Layout& from) {
    to.beginStructure();
    to << from.id << from.properties;
    to.beginArray(QMetaType::fromType<QDBusVariant>());
    for (const QVariant& child : from.children)
        to << QDBusVariant(child);
    to.endArray();
    to.endStructure();
    return to;
}

const QDBusArgument& operator>>(const QDBusArgument& from, Layout& to) {
    from.beginStructure();
    from >> to.id >> to.properties;
    from.beginArray();
    to.children.clear();
    while (!from.atEnd()) {
        QDBusVariant child;
        from >> child;
        to.children.append(QVariant::fromValue(qdbus_cast<Layout>(child.variant())));
    }
    from.endArray();
    from.endStructure();
    return from;
}

QDBusArgument& operator<<(QDBusArgument& to, const ItemProperties& from) {
    to.beginStructure();
    to << from.id << from.properties;
    to.endStructure();
    return to;
}

const QDBusArgument& operator>>(const QDBusArgument& from, ItemProperties& to) {
    from.beginStructure();
    from >> to.id >> to.properties;
    from.endStructure();
    return from;
}

QDBusArgument& operator<<(QDBusArgument& to, const RemovedProperties& from) {
    to.beginStructure();
    to << from.id << from.names;
    to.endStructure();
    return to;
}

const QDBusArgument& operator>>(const QDBusArgument& from, RemovedProperties& to) {
    from.beginStructure();
    from >> to.id >> to.names;
    from.endStructure();
    return from;
}

QDBusArgument& operator<<(QDBusArgument& to, const Event& from) {
    to.beginStructure();
    to << from.id << from.type << from.data << from.timestamp;
    to.endStructure();
    return to;
}

const QDBusArgument& operator>>(const QDBusArgument& from, Event& to) {
    from.beginStructure();
    from >> to.id >> to.type >> to.data >> to.timestamp;
    from.endStructure();
    return from;
}

}  // namespace nulo::dbusmenu
