#include "service/http/ListeningSocket.h"

#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/Environment.h"

namespace nulo::service {
namespace {

constexpr int firstDescriptor = 3;

int option(int descriptor, int name) {
    int value = 0;
    socklen_t size = sizeof value;
    return getsockopt(descriptor, SOL_SOCKET, name, &value, &size) == 0 ? value : -1;
}

/// Nothing when the socket is not bound to an address of the internet.
std::optional<ListeningSocket> described(int descriptor) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    char host[NI_MAXHOST];
    char port[NI_MAXSERV];
    if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
        (address.ss_family != AF_INET && address.ss_family != AF_INET6) ||
        getnameinfo(reinterpret_cast<sockaddr*>(&address), size, host, sizeof host, port,
                    sizeof port, NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        return std::nullopt;
    return ListeningSocket{descriptor, host, std::atoi(port)};
}

std::string reason(int error) {
    switch (error) {
        case EADDRINUSE:
            return "another program, perhaps another nulo-service, listens there already; stop it "
                   "or choose another --port";
        case EACCES:
            return "ports below 1024 need more rights; choose another --port";
        case EADDRNOTAVAIL:
            return "it is no address of this machine";
        default:
            return std::strerror(error);
    }
}

}  // namespace

Result<ListeningSocket> openSocket(const std::string& address, int port) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int unknown = getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found);
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owned(unknown ? nullptr : found,
                                                               freeaddrinfo);
    const int descriptor =
        unknown ? -1 : socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int on = 1;
    if (descriptor >= 0 && setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
        bind(descriptor, found->ai_addr, found->ai_addrlen) == 0 &&
        listen(descriptor, SOMAXCONN) == 0)
        return *described(descriptor);
    const int error = unknown ? EADDRNOTAVAIL : errno;
    if (descriptor >= 0)
        close(descriptor);
    return Error{"cannot listen on " + address + " port " + std::to_string(port) + ": " +
                 reason(error)};
}

Result<std::optional<ListeningSocket>> inheritedSocket() {
    // The variables also reach programs that a service starts; the process id says whom they mean.
    if (environmentVariable("LISTEN_PID") != std::to_string(getpid()))
        return std::optional<ListeningSocket>();
    if (environmentVariable("LISTEN_FDS") != "1")
        return Error{"handed " + environmentVariable("LISTEN_FDS") +
                     " sockets, but it serves one: give its socket unit one ListenStream="};
    auto socket = described(firstDescriptor);
    if (!socket || option(firstDescriptor, SO_TYPE) != SOCK_STREAM ||
        option(firstDescriptor, SO_ACCEPTCONN) != 1)
        return Error{
            "the socket that it was handed is no listening TCP socket: give its socket unit one "
            "ListenStream= with an IP address and a port"};
    socket->isShared = true;
    fcntl(firstDescriptor, F_SETFD, FD_CLOEXEC);
    return socket;
}

}  // namespace nulo::service
