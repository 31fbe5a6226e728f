#pragma once

#include <functional>
#include <memory>

namespace nulo {

/// SIGTERM, SIGINT and SIGHUP as a call on Qt's event loop; destroying it puts the old handling
/// back.
class TerminationSignals {
  public:
    virtual ~TerminationSignals() = default;
};

/// Once in a process, on the main thread, after QCoreApplication was made. A second signal ends the
/// process at once.
std::unique_ptr<TerminationSignals> onTerminationSignal(std::function<void()> callback);

}  // namespace nulo
