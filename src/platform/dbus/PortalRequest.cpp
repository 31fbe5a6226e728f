#include "platform/dbus/PortalRequest.h"

#include <QDBusArgument>
#include <QDBusPendingReply>
#include <utility>

namespace nulo {
namespace {

constexpr const char* requestInterface = "org.freedesktop.portal.Request";

/// Known before the call, so that no answer can come before somebody listens.
QString newToken() {
    static int count = 0;
    return QString("nulo%1").arg(++count);
}

}  // namespace

PortalRequest::PortalRequest(QDBusConnection bus, const QString& interface, const QString& method,
                             QVariantList arguments, QVariantMap options, Answer answer)
    : m_bus(std::move(bus)),
      m_answer(std::move(answer)),
      m_response(new BusSignals([this](const QDBusMessage& signal) {
          const QVariantList said = signal.arguments();
          if (said.size() != 2)
              return;
          const uint code = said[0].toUInt();
          end(code == 0, qdbus_cast<QVariantMap>(said[1]),
              code == 1 ? "it was refused" : "the desktop could not do it");
      })) {
    const QString token = newToken();
    const QString sender = m_bus.baseService().mid(1).replace('.', '_');
    m_path = QString("%1/request/%2/%3").arg(portalPath, sender, token);
    m_response->listen(m_bus, portalService, m_path, requestInterface, "Response");
    options["handle_token"] = token;
    arguments.append(options);
    auto call = QDBusMessage::createMethodCall(portalService, portalPath, interface, method);
    call.setArguments(arguments);
    m_call.reset(new QDBusPendingCallWatcher(m_bus.asyncCall(call)));
    QObject::connect(m_call.get(), &QDBusPendingCallWatcher::finished, m_call.get(),
                     [this](QDBusPendingCallWatcher* finished) {
                         const QDBusPendingReply<QDBusObjectPath> reply = *finished;
                         if (reply.isError())
                             end(false, {}, reply.error().message());
                     });
}

PortalRequest::~PortalRequest() {
    m_response->stop(m_bus, portalService, m_path, requestInterface, "Response");
    m_response->silence();
    m_call->disconnect();
}

void PortalRequest::end(bool isGranted, const QVariantMap& results, const QString& reason) {
    if (const auto answer = std::exchange(m_answer, nullptr))
        answer(isGranted, results, reason);
}

}  // namespace nulo
