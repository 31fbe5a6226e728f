#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QStringList>
#include <QVariantMap>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "platform/Backends.h"
#include "platform/dbus/BusSignals.h"

namespace nulo {
namespace {

// Services wrap lines, but some keep every word of them.
constexpr qsizetype longestText = 400;
constexpr int untilTheServiceDecides = -1;

constexpr const char* path = "/org/freedesktop/Notifications";
constexpr const char* interface = "org.freedesktop.Notifications";

QString cut(const std::string& text) {
    const QString whole = QString::fromStdString(text).simplified();
    return whole.size() > longestText ? whole.left(longestText) + "..." : whole;
}

class DesktopNotifications final : public Notifications {
  public:
    void show(const Notice& notice) override { post({notice, {}}); }
    void offer(const Notice& notice, NoticeAction action) override {
        if (!std::exchange(m_listens, true))
            m_signals.listen(m_bus, {}, path, interface, "ActionInvoked");
        post({notice, std::move(action)});
    }
    void withdrawOffer() override {
        if (m_next) {
            if (m_next->action.run)
                m_next.reset();
            return;
        }
        if (!std::exchange(m_sent, {}).action.run)
            return;
        m_isWithdrawn = true;
        if (!m_call)
            close();
    }

  private:
    struct Item {
        Notice notice;
        NoticeAction action;
    };
    using Answered = std::function<void(const QDBusPendingCall& answer)>;

    /// One call at a time: only its answer tells which notice the next one replaces.
    void post(Item item) {
        m_next = std::move(item);
        if (!m_call)
            send();
    }

    void send() {
        m_sent = *std::exchange(m_next, std::nullopt);
        m_isWithdrawn = false;
        ++m_number;
        if (!m_sent.action.run)
            return notify({});
        // Services without buttons may show a dialogue in place of a notice that has one.
        call("GetCapabilities", {}, [this](const QDBusPendingReply<QStringList>& answer) {
            if (m_next || m_isWithdrawn)
                return;
            const bool hasButtons = !answer.isError() && answer.value().contains("actions");
            notify(hasButtons ? QStringList{key(), QString::fromStdString(m_sent.action.label)}
                              : QStringList());
        });
    }

    void notify(const QStringList& actions) {
        // The text is markup, and quotes what other programs say.
        call("Notify",
             {"Nulo", m_shown, "org.nulo.Nulo", cut(m_sent.notice.title),
              cut(m_sent.notice.text).toHtmlEscaped(), actions,
              QVariantMap{{"desktop-entry", "org.nulo.Nulo"}}, untilTheServiceDecides},
             [this](const QDBusPendingReply<uint>& answer) {
                 m_shown = answer.isError() ? 0 : answer.value();
                 m_service = answer.reply().service();
                 if (m_isWithdrawn)
                     close();
             });
    }

    void close() {
        if (m_shown != 0)
            m_bus.send(method("CloseNotification") << std::exchange(m_shown, 0));
    }

    void call(const char* name, const QVariantList& arguments, Answered answered) {
        QDBusMessage message = method(name);
        message.setArguments(arguments);
        m_call = std::make_unique<QDBusPendingCallWatcher>(m_bus.asyncCall(message));
        QObject::connect(m_call.get(), &QDBusPendingCallWatcher::finished, m_call.get(),
                         [this, answered](QDBusPendingCallWatcher* finished) {
                             m_call.release()->deleteLater();
                             answered(*finished);
                             if (m_next && !m_call)
                                 send();
                         });
    }

    void invoked(const QDBusMessage& signal) {
        const QVariantList arguments = signal.arguments();
        // Any program on the bus can say that a button was clicked.
        if (signal.service() != m_service || signal.signature() != "us" || m_shown == 0 ||
            arguments[0].toUInt() != m_shown || arguments[1].toString() != key())
            return;
        if (const auto run = std::exchange(m_sent, {}).action.run)
            run();
    }

    static QDBusMessage method(const char* name) {
        return QDBusMessage::createMethodCall(interface, path, interface, name);
    }
    /// Of the present notice's button: a click on one that it replaced may be on its way.
    QString key() const { return "do-" + QString::number(m_number); }

    QDBusConnection m_bus = QDBusConnection::sessionBus();
    uint m_shown = 0;   // the service's name for the notice that is shown; 0 for none
    QString m_service;  // who gave it that name
    Item m_sent;        // shown, or about to be
    unsigned m_number = 0;
    bool m_isWithdrawn = false;
    std::optional<Item> m_next;
    std::unique_ptr<QDBusPendingCallWatcher> m_call;
    bool m_listens = false;
    BusSignals m_signals{[this](const QDBusMessage& signal) { invoked(signal); }};
};

}  // namespace

std::unique_ptr<Notifications> makeDesktopNotifications() {
    return std::make_unique<DesktopNotifications>();
}

}  // namespace nulo
