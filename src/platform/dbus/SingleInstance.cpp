#include "platform/dbus/SingleInstance.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <utility>

#include "platform/dbus/BusObject.h"

namespace nulo {
namespace {

constexpr auto busName = "org.nulo.Nulo";
constexpr auto objectPath = "/org/nulo/Nulo";
constexpr int longestWaitForTheOther = 2000;  // ms
constexpr int longestRetry = 20 * 60 * 1000;  // ms; the longest take, and what becomes of it

constexpr auto failed = "org.nulo.Nulo.Failed";

constexpr auto introspection = R"(
  <interface name="org.nulo.Nulo">
    <method name="StartRecording"/>
    <method name="StopRecording"/>
    <method name="Toggle"/>
    <method name="ShowSettings"/>
    <method name="PasteLast"/>
    <method name="CopyLast"/>
    <method name="Retry"/>
    <method name="Forget"/>
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
            {"ShowSettings", m_actions.showSettings},
            {"Forget", m_actions.forget}};
        for (const auto& [member, method] : methods) {
            if (message.member() != member || !message.arguments().isEmpty())
                continue;
            const QDBusMessage reply = message.createReply();
            if (const auto action = method)
                action();
            return reply;
        }
        return answerLater(message);
    }

    /// What takes its time, and may fail.
    QDBusMessage answerLater(const QDBusMessage& message) {
        const QVariantList arguments = message.arguments();
        const bool hasNumber = message.signature() == "u";
        const auto back = hasNumber ? arguments[0].toUInt() : 1u;
        const auto pasteOrCopy = message.member() == "PasteLast"  ? m_actions.pasteLast
                                 : message.member() == "CopyLast" ? m_actions.copyLast
                                                                  : nullptr;
        if (pasteOrCopy && (hasNumber || arguments.isEmpty()))
            pasteOrCopy(back, answerTo(message));
        else if (const auto retry = m_actions.retry;
                 retry && message.member() == "Retry" && arguments.isEmpty())
            retry(answerTo(message));
        return {};
    }

    RemoteActions::Answer answerTo(const QDBusMessage& message) const {
        message.setDelayedReply(true);
        return [bus = m_bus, message](const Outcome& outcome) {
            if (!message.isReplyRequired())
                return;
            bus.send(outcome ? message.createReply()
                             : message.createErrorReply(
                                   failed, QString::fromStdString(outcome.error().description)));
        };
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

Outcome askRunningNulo(const std::string& method, std::optional<unsigned> back) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return Error{"there is no D-Bus session to reach a running Nulo by"};
    auto call = QDBusMessage::createMethodCall(busName, objectPath, busName,
                                               QString::fromStdString(method));
    if (back)
        call << *back;
    const QDBusMessage reply =
        bus.call(call, QDBus::Block, method == "Forget" ? longestWaitForTheOther : longestRetry);
    if (reply.type() == QDBusMessage::ReplyMessage)
        return Success{};
    if (reply.errorName() == failed)
        return Error{reply.errorMessage().toStdString()};
    switch (QDBusError(reply).type()) {
        case QDBusError::ServiceUnknown:
            return Error{"Nulo is not running"};
        case QDBusError::UnknownMethod:
            return Error{"the Nulo that runs is of another version: end it, then start it again"};
        default:
            return Error{"the Nulo that runs gave no answer"};
    }
}

}  // namespace nulo
