#pragma once

#include <QDBusArgument>
#include <QList>
#include <QStringList>
#include <QVariantMap>

/// What com.canonical.dbusmenu sends, by D-Bus signature.
namespace nulo::dbusmenu {

struct Layout {  // (ia{sv}av); each of the children is a Layout
    int id = 0;
    QVariantMap properties;
    QVariantList children;
};
struct ItemProperties {  // (ia{sv})
    int id = 0;
    QVariantMap properties;
};
struct RemovedProperties {  // (ias)
    int id = 0;
    QStringList names;
};
struct Event {  // (isvu)
    int id = 0;
    QString type;
    QDBusVariant data;
    uint timestamp = 0;
};
using Shortcut = QList<QStringList>;  // aas: one list of names a key press

/// Before any of the types is sent or read.
void registerTypes();

QDBusArgument& operator<<(QDBusArgument& to, const Layout& from);
const QDBusArgument& operator>>(const QDBusArgument& from, Layout& to);
QDBusArgument& operator<<(QDBusArgument& to, const ItemProperties& from);
const QDBusArgument& operator>>(const QDBusArgument& from, ItemProperties& to);
QDBusArgument& operator<<(QDBusArgument& to, const RemovedProperties& from);
const QDBusArgument& operator>>(const QDBusArgument& from, RemovedProperties& to);
QDBusArgument& operator<<(QDBusArgument& to, const Event& from);
const QDBusArgument& operator>>(const QDBusArgument& from, Event& to);

}  // namespace nulo::dbusmenu
