#include "platform/dbus/SingleInstance.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <utility>

#include "platform/dbus/BusObject.h"

namespace nulo {
namespace {

constexpr auto busName = "org.nulo.Nulo";
constexpr auto objectPath = "/org/nulo/Nulo";
constexpr int longestWaitForTheOther = 2000;  // ms

constexpr auto introspection = R"(
  <interface name="org.nulo.Nulo">
    <method name="StartRecording"/>
    <method name="StopRecording"/>
    <method name="Toggle"/>
    <method name="ShowSettings"/>
    <property name="State" type="s" access="read"/>
  </interface>
)";

class BusRemoteControl final : public RemoteControl, private BusObject {
  public:
    explicit BusRemoteControl(const QDBusConnection& bus)
        : BusObject(bus, objectPath, busName), m_bus(bus) {}
    ~BusRemoteControl() override { m_bus.unregisterService(busName); }

    void setActions(RemoteActions actions) override { m_actions = std::move(actions); }

    void setRecording(bool recording) override {
        if (std::exchange(m_isRecording, recording) == recording)
            return;
        auto changed = QDBusMessage::createSignal(objectPath, "org.freedesktop.DBus.Properties",
                                                  "PropertiesChanged");
        changed << busName << properties() << QStringList();
        m_bus.send(changed);
    }

  private:
    QString introspect(const QString&) const override { return introspection; }

    QVariantMap properties() const override {
        return {{"State", m_isRecording ? "recording" : "idle"}};
    }

    QDBusMessage answer(const QDBusMessage& message) override {
        const std::pair<const char*, const std::function<void()>&> methods[] = {
            {"StartRecording", m_actions.startRecording},
            {"StopRecording", m_actions.stopRecording},
            {"Toggle", m_actions.toggle},
            {"ShowSettings", m_actions.showSettings}};
        for (const auto& [member, method] : methods) {
            if (message.member() != member || !message.arguments().isEmpty())
                continue;
            const QDBusMessage reply = message.createReply();
            if (const auto action = method)
                action();
            return reply;
        }
        return {};
    }

    QDBusConnection m_bus;
    RemoteActions m_actions;
    bool m_isRecording = false;
};

}  // namespace

ClaimedInstance claimInstance(const Print& print) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        print("[nulo] No D-Bus session: no remote control, and a tray of the old kind only.");
    auto remoteControl = std::make_unique<BusRemoteControl>(bus);
    if (!bus.isConnected() || bus.registerService(busName))
        return {Instance::only, std::move(remoteControl)};
    const auto call = QDBusMessage::createMethodCall(busName, objectPath, busName, "ShowSettings");
    const bool answered =
        bus.call(call, QDBus::Block, longestWaitForTheOther).type() == QDBusMessage::ReplyMessage;
    return {answered ? Instance::alreadyRuns : Instance::alreadyRunsButHangs, nullptr};
}

}  // namespace nulo
