#pragma once

#include <functional>
#include <memory>

namespace nulo {

/// Stops the announcements when it is destroyed.
class SessionLockWatch {
  public:
    virtual ~SessionLockWatch() = default;
};

/// Calls back, on the main thread, when a screen lock or a screen saver is about to need the
/// keyboard, or has it, or when the machine goes to sleep; also when that is over. Announced by
/// logind on the system bus, and by the screen savers of the desktops on the session bus. With a
/// QCoreApplication.
std::unique_ptr<SessionLockWatch> watchSessionLock(std::function<void()> callback);

}  // namespace nulo
