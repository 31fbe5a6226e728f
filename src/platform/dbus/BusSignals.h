#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <functional>

namespace nulo {

/// Hears signals of other programs on a bus. Main thread, with a QCoreApplication.
class BusSignals final : public QObject {
    Q_OBJECT
  public:
    using Heard = std::function<void(const QDBusMessage& signal)>;
    explicit BusSignals(Heard heard) : m_heard(std::move(heard)) {}

    /// An empty name stands for all of them.
    void listen(QDBusConnection bus, const QString& service, const QString& path,
                const QString& interface, const QString& name) {
        bus.connect(service, path, interface, name, this, SLOT(received(QDBusMessage)));
    }
    void stop(QDBusConnection bus, const QString& service, const QString& path,
              const QString& interface, const QString& name) {
        bus.disconnect(service, path, interface, name, this, SLOT(received(QDBusMessage)));
    }

    /// Nothing is heard from here on, nor what is on its way.
    void silence() { m_isSilent = true; }

  private slots:
    void received(const QDBusMessage& signal) {
        if (!m_isSilent)
            m_heard(signal);
    }

  private:
    const Heard m_heard;
    bool m_isSilent = false;
};

}  // namespace nulo
