#pragma once

#include <optional>
#include <string>

#include "base/Result.h"

namespace nulo::service {

/// A listening TCP socket.
struct ListeningSocket {
    int descriptor;
    std::string address;
    int port;
    bool isShared = false;  // the program that handed it over goes on listening
};

/// Opens a socket; port 0 takes any free port. The error is a line for the user.
Result<ListeningSocket> openSocket(const std::string& address, int port);

/// What the service manager that started this process handed over by sd_listen_fds(3), and keeps
/// open; nothing when it was started otherwise. The error is a line for the user.
Result<std::optional<ListeningSocket>> inheritedSocket();

}  // namespace nulo::service
