#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <filesystem>
#include <memory>
#include <utility>
#include <vector>

#include "base/FileIO.h"
#include "platform/WaylandBackends.h"
#include "platform/dbus/PortalRequest.h"

namespace nulo {
namespace {

constexpr const char* interface = "org.freedesktop.portal.RemoteDesktop";
constexpr const char* sessionInterface = "org.freedesktop.portal.Session";
constexpr const char* connectionName = "portal-paste";
constexpr uint keyboard = 1;
constexpr uint untilRevoked = 2;
constexpr std::uintmax_t longestToken = 4096;

constexpr int shiftKey = 42, insertKey = 110;  // the kernel's codes

/// Everything happens on main, where the bus is heard.
class PortalPaste final : public PasteKeystroke {
  public:
    PortalPaste(std::filesystem::path tokenFile, Print print)
        : m_tokenFile(std::move(tokenFile)),
          m_print(std::move(print)),
          m_bus(QDBusConnection::connectToBus(QDBusConnection::SessionBus, connectionName)),
          m_signals([this](const QDBusMessage& signal) {
              if (signal.path() == m_session)
                  m_session.clear();  // the next paste asks again
          }),
          m_watcher(portalService, m_bus, QDBusServiceWatcher::WatchForUnregistration) {
        m_signals.listen(m_bus, portalService, {}, sessionInterface, "Closed");
        QObject::connect(&m_watcher, &QDBusServiceWatcher::serviceUnregistered, &m_watcher,
                         [this] { portalEnded(); });
        begin();
    }

    ~PortalPaste() override {
        m_call.reset();
        m_request.reset();
        QDBusConnection::disconnectFromBus(connectionName);  // which ends the portal's session
    }

    /// Waits for the user's answer where the portal asks for one.
    void post(Report report) override {
        m_waiting.push_back(std::move(report));
        advance();
    }

  private:
    void begin() {
        m_isReady = false;
        request("CreateSession", {}, {{"session_handle_token", "nulo"}},
                [this](const QVariantMap& results) {
                    m_session = results.value("session_handle").toString();
                    selectKeyboard();
                });
    }

    void selectKeyboard() {
        QVariantMap options{{"types", keyboard}, {"persist_mode", untilRevoked}};
        if (const auto token = readFile(m_tokenFile, longestToken); token && !token->empty())
            options["restore_token"] = QString::fromStdString(*token);
        request("SelectDevices", {session()}, std::move(options),
                [this](const QVariantMap&) { start(); });
    }

    void start() {
        request("Start", {session(), QString()}, {}, [this](const QVariantMap& results) {
            // Each is good for one start.
            if (const QString token = results.value("restore_token").toString(); !token.isEmpty())
                if (const Outcome kept = replaceFile(m_tokenFile, token.toStdString()); !kept)
                    m_print("The desktop will ask again: " + kept.error().description);
            m_isReady = true;
            m_request.reset();
            advance();
        });
    }

    QVariant session() const { return QVariant::fromValue(QDBusObjectPath(m_session)); }

    void request(const QString& method, QVariantList arguments, QVariantMap options,
                 std::function<void(const QVariantMap& results)> granted) {
        m_request = std::make_unique<PortalRequest>(
            m_bus, interface, method, std::move(arguments), std::move(options),
            [this, granted = std::move(granted)](bool isGranted, const QVariantMap& results,
                                                 const QString& reason) {
                if (isGranted)
                    return granted(results);
                m_request.reset();
                m_refusal =
                    "the desktop's portal lets Nulo send no keys (" + reason.toStdString() + ")";
                failAll(m_refusal);
            });
    }

    void portalEnded() {
        m_request.reset();
        m_refusal.clear();
        failAll("the desktop's portal has ended");
    }

    void failAll(const std::string& reason) {
        m_session.clear();
        for (const Report& report : std::exchange(m_waiting, {}))
            report.onEnd(Error{reason});
    }

    void advance() {
        if (m_waiting.empty() || m_call || m_request)
            return;
        if (!m_refusal.empty())  // a question for each paste would be worse than none
            return failAll(m_refusal);
        if (!m_isReady || m_session.isEmpty())
            return begin();
        const Report report = std::move(m_waiting.front());
        m_waiting.erase(m_waiting.begin());
        if (report.onSending)
            report.onSending();
        key(shiftKey, true);
        key(insertKey, true);
        key(insertKey, false);
        m_call.reset(new QDBusPendingCallWatcher(key(shiftKey, false)));
        QObject::connect(m_call.get(), &QDBusPendingCallWatcher::finished, m_call.get(),
                         [this, report](QDBusPendingCallWatcher* finished) {
                             const QDBusPendingReply<> reply = *finished;
                             m_call.reset();
                             if (reply.isError()) {
                                 m_session.clear();
                                 report.onEnd(Error{reply.error().message().toStdString()});
                             } else {
                                 report.onEnd(Success{});
                             }
                             advance();
                         });
    }

    QDBusPendingCall key(int code, bool isDown) {
        auto call = QDBusMessage::createMethodCall(portalService, portalPath, interface,
                                                   "NotifyKeyboardKeycode");
        call.setArguments({session(), QVariantMap(), code, isDown ? 1u : 0u});
        return m_bus.asyncCall(call);
    }

    struct Later {
        void operator()(QObject* object) const {
            object->disconnect();
            object->deleteLater();
        }
    };

    const std::filesystem::path m_tokenFile;
    const Print m_print;
    QDBusConnection m_bus;
    BusSignals m_signals;
    QDBusServiceWatcher m_watcher;
    QString m_session;
    std::string m_refusal;
    bool m_isReady = false;
    std::vector<Report> m_waiting;
    std::unique_ptr<PortalRequest> m_request;
    std::unique_ptr<QDBusPendingCallWatcher, Later> m_call;
};

}  // namespace

std::unique_ptr<PasteKeystroke> makePortalPaste(std::filesystem::path tokenFile, Print print) {
    return std::make_unique<PortalPaste>(std::move(tokenFile), std::move(print));
}

}  // namespace nulo
