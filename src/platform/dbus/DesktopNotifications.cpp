#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QStringList>
#include <QVariantMap>
#include <memory>
#include <optional>
#include <utility>

#include "platform/Backends.h"

namespace nulo {
namespace {

// Services wrap lines, but some keep every word of them.
constexpr qsizetype longestText = 400;
constexpr int untilTheServiceDecides = -1;

QString cut(const std::string& text) {
    const QString whole = QString::fromStdString(text).simplified();
    return whole.size() > longestText ? whole.left(longestText) + "..." : whole;
}

class DesktopNotifications final : public Notifications {
  public:
    /// One call at a time: only its answer tells which notice the next one replaces.
    void show(const Notice& notice) override {
        m_next = notice;
        if (!m_call)
            send();
    }

  private:
    void send() {
        const Notice notice = *std::exchange(m_next, std::nullopt);
        auto call = QDBusMessage::createMethodCall("org.freedesktop.Notifications",
                                                   "/org/freedesktop/Notifications",
                                                   "org.freedesktop.Notifications", "Notify");
        // The text is markup, and quotes what other programs say.
        call << "Nulo" << m_shown << "org.nulo.Nulo" << cut(notice.title)
             << cut(notice.text).toHtmlEscaped() << QStringList()
             << QVariantMap{{"desktop-entry", "org.nulo.Nulo"}} << untilTheServiceDecides;
        m_call = std::make_unique<QDBusPendingCallWatcher>(m_bus.asyncCall(call));
        QObject::connect(m_call.get(), &QDBusPendingCallWatcher::finished, m_call.get(),
                         [this](QDBusPendingCallWatcher* finished) {
                             const QDBusPendingReply<uint> reply = *finished;
                             m_shown = reply.isError() ? 0 : reply.value();
                             m_call.release()->deleteLater();
                             if (m_next)
                                 send();
                         });
    }

    QDBusConnection m_bus = QDBusConnection::sessionBus();
    uint m_shown = 0;  // the service's name for the notice that is shown; 0 for none
    std::optional<Notice> m_next;
    std::unique_ptr<QDBusPendingCallWatcher> m_call;
};

}  // namespace

std::unique_ptr<Notifications> makeDesktopNotifications() {
    return std::make_unique<DesktopNotifications>();
}

}  // namespace nulo
