#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo {

/// A session bus without services of its own. $DBUS_SESSION_BUS_ADDRESS of this process names it as
/// long as this lives, whether the bus runs or not; since libdbus reads that once a process, there
/// is one of these a process, made before anything looks for a bus.
class PrivateBus {
  public:
    PrivateBus();
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    /// Returns when clients can connect; throws when they cannot.
    void start();
    const std::string& address() const { return m_address; }
    /// As if it had crashed; the address stays.
    void stop();

  private:
    TemporaryFolder m_folder;
    const std::string m_address;
    std::optional<ChildProcess> m_daemon;
};

}  // namespace nulo
