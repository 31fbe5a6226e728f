#pragma once

#include <QDBusConnection>
#include <QDBusPendingCallWatcher>
#include <QVariantMap>
#include <functional>
#include <memory>

#include "platform/dbus/BusSignals.h"

namespace nulo {

inline constexpr const char* portalService = "org.freedesktop.portal.Desktop";
inline constexpr const char* portalPath = "/org/freedesktop/portal/desktop";

/// One request to the desktop's portal and its answer, which comes when the user has seen to a
/// dialog, if there is one. Destroying it forgets the answer. Main thread, with a QCoreApplication.
class PortalRequest {
  public:
    /// Whether it was granted; the reason, a sentence's end, where it was not.
    using Answer =
        std::function<void(bool isGranted, const QVariantMap& results, const QString& reason)>;

    /// `arguments` but for the options, which go last. The answer may destroy the request.
    PortalRequest(QDBusConnection bus, const QString& interface, const QString& method,
                  QVariantList arguments, QVariantMap options, Answer answer);
    ~PortalRequest();
    PortalRequest(const PortalRequest&) = delete;
    PortalRequest& operator=(const PortalRequest&) = delete;

  private:
    void end(bool isGranted, const QVariantMap& results, const QString& reason);

    QDBusConnection m_bus;
    QString m_path;
    Answer m_answer;
    // Each may be what calls when the request goes.
    struct Later {
        void operator()(QObject* object) const { object->deleteLater(); }
    };
    std::unique_ptr<BusSignals, Later> m_response;
    std::unique_ptr<QDBusPendingCallWatcher, Later> m_call;
};

}  // namespace nulo
