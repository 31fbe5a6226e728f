#pragma once

#include <optional>
#include <string>

#include "base/Result.h"

namespace nulo::service {

/// A listening TCP socket that a service manager opened and keeps open.
struct InheritedSocket {
    int descriptor;
    std::string address;
    int port;
};

/// What the manager that started this process handed over by sd_listen_fds(3); nothing when it was
/// started otherwise. The error is a line for the user.
Result<std::optional<InheritedSocket>> inheritedSocket();

}  // namespace nulo::service
