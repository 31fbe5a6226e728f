#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QString>
#include <QVariantMap>

namespace nulo {

/// An object on the session bus with one interface, answered from what a subclass says here. A call
/// that the interface does not have, or with other arguments, gets a D-Bus error. Main thread.
class BusObject : public QDBusVirtualObject {
  public:
    BusObject(QDBusConnection connection, QString path, QString interface);
    ~BusObject() override;
    BusObject(const BusObject&) = delete;
    BusObject& operator=(const BusObject&) = delete;

  protected:
    virtual QVariantMap properties() const = 0;
    /// The reply, or an error made by message.createErrorReply(); an invalid message for a method
    /// that there is none of; nothing is sent for one that was marked as answered later
    /// (setDelayedReply). It may destroy this object.
    virtual QDBusMessage answer(const QDBusMessage& message) = 0;

    void emitSignal(const QString& name, const QVariantList& arguments = {}) const;

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) final;

  private:
    QDBusMessage answerProperties(const QDBusMessage& message) const;

    QDBusConnection m_connection;
    const QString m_path;
    const QString m_interface;
};

}  // namespace nulo
