#include "platform/dbus/DBusMenu.h"

#include <QDBusError>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QPointer>
#include <algorithm>
#include <limits>
#include <utility>

namespace nulo {
namespace {

using Kind = MenuEntry::Kind;

constexpr int rootId = 0;

const char introspection[] = R"xml(<interface name="com.canonical.dbusmenu">
<property name="Version" type="u" access="read"/>
<property name="TextDirection" type="s" access="read"/>
<property name="Status" type="s" access="read"/>
<property name="IconThemePath" type="as" access="read"/>
<method name="GetLayout"><arg type="i" direction="in"/><arg type="i" direction="in"/>
<arg type="as" direction="in"/><arg type="u" direction="out"/>
<arg type="(ia{sv}av)" direction="out"/></method>
<method name="GetGroupProperties"><arg type="ai" direction="in"/><arg type="as" direction="in"/>
<arg type="a(ia{sv})" direction="out"/></method>
<method name="GetProperty"><arg type="i" direction="in"/><arg type="s" direction="in"/>
<arg type="v" direction="out"/></method>
<method name="Event"><arg type="i" direction="in"/><arg type="s" direction="in"/>
<arg type="v" direction="in"/><arg type="u" direction="in"/></method>
<method name="EventGroup"><arg type="a(isvu)" direction="in"/><arg type="ai" direction="out"/>
</method>
<method name="AboutToShow"><arg type="i" direction="in"/><arg type="b" direction="out"/></method>
<method name="AboutToShowGroup"><arg type="ai" direction="in"/><arg type="ai" direction="out"/>
<arg type="ai" direction="out"/></method>
<signal name="ItemsPropertiesUpdated"><arg type="a(ia{sv})"/><arg type="a(ias)"/></signal>
<signal name="LayoutUpdated"><arg type="u"/><arg type="i"/></signal>
</interface>
)xml";

/// The protocol's text: no bytes that are not UTF-8, no NUL, which would end it, and no mnemonics.
QString label(const std::string& title) {
    QString text = QString::fromUtf8(title.data(), static_cast<qsizetype>(title.size()));
    text.remove(QChar(0));
    return text.replace(u'_', QStringLiteral("__"));
}

/// "Ctrl+Q" as [["Control", "q"]]: the protocol has X11's names of keys.
dbusmenu::Shortcut shortcut(const std::string& sequence) {
    QStringList names = QString::fromStdString(sequence).split(u'+', Qt::SkipEmptyParts);
    for (QString& name : names) {
        if (name == u"Ctrl")
            name = QStringLiteral("Control");
        else if (name == u",")
            name = QStringLiteral("comma");
        else if (name.size() == 1)
            name = name.toLower();
    }
    return {names};
}

QVariantMap entryProperties(const MenuEntry& entry) {
    if (entry.kind == Kind::separator)
        return {{"type", "separator"}};
    QVariantMap properties{{"label", label(entry.title)}};
    if (entry.kind == Kind::header)
        properties["enabled"] = false;
    if (entry.kind == Kind::warning)
        properties["disposition"] = "warning";
    if (entry.kind == Kind::choice) {
        properties["toggle-type"] = "radio";
        properties["toggle-state"] = entry.checked ? 1 : 0;
    }
    if (!entry.shortcut.empty())
        properties["shortcut"] = QVariant::fromValue(shortcut(entry.shortcut));
    return properties;
}

QVariantMap filtered(QVariantMap properties, const QStringList& names) {
    if (!names.isEmpty())
        properties.removeIf([&](const auto& property) { return !names.contains(property.key()); });
    return properties;
}

QDBusMessage unknownId(const QDBusMessage& message) {
    return message.createErrorReply(QDBusError::InvalidArgs, "No such menu entry");
}

}  // namespace

DBusMenu::DBusMenu(const QDBusConnection& connection, const QString& path)
    : BusObject(connection, path, "com.canonical.dbusmenu") {
    dbusmenu::registerTypes();
    m_runChosen.setSingleShot(true);
    QObject::connect(&m_runChosen, &QTimer::timeout, &m_runChosen, [this] { runChosen(); });
}

void DBusMenu::setMenu(Menu menu) {
    if (sameRows(menu)) {
        updateChecks(std::move(menu));
        return;
    }
    m_firstId += static_cast<int>(m_menu.size());
    if (m_firstId > std::numeric_limits<int>::max() / 2)
        m_firstId = 1;
    m_menu = std::move(menu);
    ++m_revision;
    emitSignal("LayoutUpdated", {m_revision, rootId});
}

bool DBusMenu::sameRows(const Menu& menu) const {
    const auto same = [](const MenuEntry& a, const MenuEntry& b) {
        return a.kind == b.kind && a.title == b.title && a.shortcut == b.shortcut;
    };
    return std::equal(menu.begin(), menu.end(), m_menu.begin(), m_menu.end(), same);
}

/// Tells hosts which marks changed; they keep the rows, also of a menu that is open.
void DBusMenu::updateChecks(Menu menu) {
    QList<dbusmenu::ItemProperties> updated;
    for (std::size_t i = 0; i < menu.size(); ++i)
        if (menu[i].checked != m_menu[i].checked)
            updated.append(
                {m_firstId + static_cast<int>(i), {{"toggle-state", menu[i].checked ? 1 : 0}}});
    m_menu = std::move(menu);
    if (!updated.isEmpty())
        emitSignal("ItemsPropertiesUpdated",
                   {QVariant::fromValue(updated),
                    QVariant::fromValue(QList<dbusmenu::RemovedProperties>())});
}

QVariantMap DBusMenu::properties() const {
    const bool rightToLeft = QGuiApplication::layoutDirection() == Qt::RightToLeft;
    return {{"Version", 3u},
            {"TextDirection", rightToLeft ? "rtl" : "ltr"},
            {"Status", m_needsAttention ? "notice" : "normal"},
            {"IconThemePath", QStringList()}};
}

QDBusMessage DBusMenu::answer(const QDBusMessage& message) {
    const QVariantList arguments = message.arguments();
    const auto isCall = [&](const char* member, const char* signature) {
        return message.member() == QLatin1String(member) &&
               message.signature() == QLatin1String(signature);
    };
    if (isCall("GetLayout", "iias")) {
        const int parent = arguments[0].toInt();
        if (parent != rootId && !isRow(parent))
            return unknownId(message);
        const auto found = layout(parent, arguments[1].toInt(), arguments[2].toStringList());
        return message.createReply({m_revision, QVariant::fromValue(found)});
    }
    if (isCall("GetGroupProperties", "aias"))
        return message.createReply(QVariant::fromValue(groupProperties(arguments)));
    if (isCall("GetProperty", "is"))
        return answerProperty(message);
    if (isCall("Event", "isvu") || isCall("EventGroup", "a(isvu)"))
        return answerEvents(message);
    if (isCall("AboutToShow", "i"))
        return answerAboutToShow(message);
    if (isCall("AboutToShowGroup", "ai"))
        return answerAboutToShowGroup(message);
    return {};
}

bool DBusMenu::isRow(int id) const {
    return id >= m_firstId && id - m_firstId < static_cast<int>(m_menu.size());
}

/// The properties of one row, or of the root above all rows.
QVariantMap DBusMenu::rowProperties(int id, const QStringList& names) const {
    if (id == rootId)
        return filtered({{"children-display", "submenu"}}, names);
    return filtered(entryProperties(m_menu[static_cast<std::size_t>(id - m_firstId)]), names);
}

dbusmenu::Layout DBusMenu::layout(int id, int depth, const QStringList& names) const {
    dbusmenu::Layout found{id, rowProperties(id, names), {}};
    if (id == rootId && depth != 0)
        for (int row = m_firstId; isRow(row); ++row)
            found.children.append(
                QVariant::fromValue(dbusmenu::Layout{row, rowProperties(row, names), {}}));
    return found;
}

QList<dbusmenu::ItemProperties> DBusMenu::groupProperties(const QVariantList& arguments) const {
    auto ids = qdbus_cast<QList<int>>(arguments[0]);
    const QStringList names = arguments[1].toStringList();
    if (ids.isEmpty()) {
        ids.append(rootId);
        for (int row = m_firstId; isRow(row); ++row)
            ids.append(row);
    }
    QList<dbusmenu::ItemProperties> found;
    for (const int id : ids)
        if (id == rootId || isRow(id))
            found.append({id, rowProperties(id, names)});
    return found;
}

QDBusMessage DBusMenu::answerProperty(const QDBusMessage& message) const {
    const QVariantList arguments = message.arguments();
    const int id = arguments[0].toInt();
    if (id != rootId && !isRow(id))
        return unknownId(message);
    const QVariantMap all = rowProperties(id, {});
    const auto found = all.constFind(arguments[1].toString());
    if (found == all.constEnd())
        return message.createErrorReply(QDBusError::UnknownProperty, "The property is not set");
    return message.createReply(QVariant::fromValue(QDBusVariant(*found)));
}

QDBusMessage DBusMenu::answerAboutToShow(const QDBusMessage& message) {
    const int id = message.arguments().constFirst().toInt();
    if (id == rootId)
        return message.createReply(aboutToShow());
    return isRow(id) ? message.createReply(false) : unknownId(message);
}

QDBusMessage DBusMenu::answerAboutToShowGroup(const QDBusMessage& message) {
    const auto ids = qdbus_cast<QList<int>>(message.arguments().constFirst());
    QList<int> toUpdate;
    QList<int> unknown;
    for (const int id : ids)
        if (id != rootId && !isRow(id))
            unknown.append(id);
    if (ids.contains(rootId) && aboutToShow())
        toUpdate.append(rootId);
    return message.createReply({QVariant::fromValue(toUpdate), QVariant::fromValue(unknown)});
}

/// Lets the program renew the menu; true when the host must read the layout again.
bool DBusMenu::aboutToShow() {
    const uint before = m_revision;
    const QPointer<DBusMenu> self(this);
    if (const auto callback = onAboutToShow)
        callback();
    return self && m_revision != before;
}

QDBusMessage DBusMenu::answerEvents(const QDBusMessage& message) {
    const QVariantList arguments = message.arguments();
    if (message.member() == u"Event") {
        const int id = arguments[0].toInt();
        if (id != rootId && !isRow(id))
            return unknownId(message);
        handleEvent(id, arguments[1].toString());
        return message.createReply();
    }
    QList<int> unknown;
    for (const auto& event : qdbus_cast<QList<dbusmenu::Event>>(arguments[0])) {
        if (event.id != rootId && !isRow(event.id))
            unknown.append(event.id);
        else
            handleEvent(event.id, event.type);
    }
    return message.createReply(QVariant::fromValue(unknown));
}

/// Runs the action after the host has its answer, because the action may take long.
void DBusMenu::handleEvent(int id, const QString& type) {
    if (id == rootId || type != u"clicked")
        return;
    const MenuEntry& entry = m_menu[static_cast<std::size_t>(id - m_firstId)];
    if (!entry.action)
        return;
    m_chosen.push_back(entry.action);
    m_runChosen.start(0);
}

/// Any of the actions may destroy this object.
void DBusMenu::runChosen() {
    const auto chosen = std::exchange(m_chosen, {});
    for (const auto& action : chosen)
        action();
}

QString DBusMenu::introspect(const QString&) const {
    return introspection;
}

}  // namespace nulo
