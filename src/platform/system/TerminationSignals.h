#pragma once

#include <QSocketNotifier>
#include <functional>
#include <memory>

namespace nulo {

/// Turns SIGTERM, SIGINT and SIGHUP into a call on Qt's event loop, until it is destroyed; a second
/// signal ends the process at once. While it lives, a terminal cannot stop the process. One in a
/// process, on the main thread, after QCoreApplication was made.
class TerminationSignals {
  public:
    explicit TerminationSignals(std::function<void()> callback);
    ~TerminationSignals();
    TerminationSignals(const TerminationSignals&) = delete;
    TerminationSignals& operator=(const TerminationSignals&) = delete;

  private:
    int m_readEnd = -1;
    std::unique_ptr<QSocketNotifier> m_notifier;
};

}  // namespace nulo
