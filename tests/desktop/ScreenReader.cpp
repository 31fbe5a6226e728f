#include "desktop/ScreenReader.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <stdexcept>

#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

const QString accessible = "org.a11y.atspi.Accessible";
constexpr uint pushButton = 43;  // ATSPI_ROLE_…
constexpr uint toggleButton = 62;
constexpr uint showing = 25;  // ATSPI_STATE_…

QDBusConnection connectToAccessibilityBus(const std::string& sessionBus) {
    static int count = 0;
    const QString name = "screen-reader-" + QString::number(++count);
    QDBusConnection session =
        QDBusConnection::connectToBus(QString::fromStdString(sessionBus), name);
    QString address;
    waitUntil([&] {
        const QDBusMessage reply = session.call(QDBusMessage::createMethodCall(
            "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress"));
        if (reply.type() == QDBusMessage::ReplyMessage)
            address = reply.arguments().value(0).toString();
        return !address.isEmpty();
    });
    QDBusConnection::disconnectFromBus(name);
    if (address.isEmpty())
        throw std::runtime_error("there is no accessibility bus");
    return QDBusConnection::connectToBus(address, name + "-bus");
}

}  // namespace

ScreenReader::ScreenReader(const std::vector<std::string>& environment,
                           const std::string& busAddress)
    : m_launcher({"/usr/libexec/at-spi-bus-launcher", "--launch-immediately"}, {environment, {}}),
      m_bus(connectToAccessibilityBus(busAddress)) {}

ScreenReader::~ScreenReader() {
    QDBusConnection::disconnectFromBus(m_bus.name());
}

bool ScreenReader::waitForWindow(const std::string& title) const {
    return waitUntil([&] { return !shownIn(title).isEmpty(); });
}

bool ScreenReader::waitForNoWindow() const {
    return waitUntil([&] { return shownWindows().isEmpty(); });
}

std::vector<std::string> ScreenReader::buttonsIn(const std::string& window) const {
    std::vector<std::string> names;
    for (const Node& node : shownIn(window))
        if (node.role == pushButton || node.role == toggleButton)
            names.push_back(node.name.toStdString());
    return names;
}

bool ScreenReader::press(const std::string& window, const std::string& button) const {
    for (const Node& node : shownIn(window)) {
        if (node.role != pushButton || node.name.toStdString() != button)
            continue;
        return call(node, "org.a11y.atspi.Action", "DoAction", {0}).arguments().value(0).toBool();
    }
    return false;
}

QDBusMessage ScreenReader::call(const Node& node, const QString& interface, const QString& method,
                                const QVariantList& arguments) const {
    QDBusMessage message =
        QDBusMessage::createMethodCall(node.program, node.path, interface, method);
    message.setArguments(arguments);
    return m_bus.call(message, QDBus::Block, 5000);
}

QList<ScreenReader::Node> ScreenReader::children(const Node& node) const {
    QList<Node> found;
    const QVariant reply = call(node, accessible, "GetChildren").arguments().value(0);
    if (!reply.canConvert<QDBusArgument>())
        return found;
    const auto list = reply.value<QDBusArgument>();
    for (list.beginArray(); !list.atEnd();) {
        Node child;
        QDBusObjectPath path;
        list.beginStructure();
        list >> child.program >> path;
        list.endStructure();
        child.path = path.path();
        child.name = call(child, "org.freedesktop.DBus.Properties", "Get", {accessible, "Name"})
                         .arguments()
                         .value(0)
                         .value<QDBusVariant>()
                         .variant()
                         .toString();
        child.role = call(child, accessible, "GetRole").arguments().value(0).toUInt();
        found.append(child);
    }
    list.endArray();  // frees what beginArray() made
    return found;
}

bool ScreenReader::isShowing(const Node& node) const {
    const QVariant reply = call(node, accessible, "GetState").arguments().value(0);
    if (!reply.canConvert<QDBusArgument>())  // gone meanwhile
        return false;
    const auto states = qdbus_cast<QList<uint>>(reply.value<QDBusArgument>());
    return !states.isEmpty() && (states[0] >> showing & 1);
}

QList<ScreenReader::Node> ScreenReader::shownWindows() const {
    QList<Node> windows;
    const Node registry{"org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root", {}, 0};
    for (const Node& program : children(registry))
        if (program.name == "nulo")
            for (const Node& window : children(program))
                if (isShowing(window))
                    windows.append(window);
    return windows;
}

QList<ScreenReader::Node> ScreenReader::shownIn(const std::string& title) const {
    QList<Node> found;
    for (const Node& window : shownWindows())
        if (window.name.toStdString() == title)
            collect(window, found);
    return found;
}

void ScreenReader::collect(const Node& node, QList<Node>& found) const {
    if (!isShowing(node))
        return;
    found.append(node);
    for (const Node& child : children(node))
        collect(child, found);
}

}  // namespace nulo
