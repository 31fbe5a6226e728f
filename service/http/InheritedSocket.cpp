#include "service/http/InheritedSocket.h"

#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>

namespace nulo::service {
namespace {

constexpr int firstDescriptor = 3;

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

int option(int descriptor, int name) {
    int value = 0;
    socklen_t size = sizeof value;
    return getsockopt(descriptor, SOL_SOCKET, name, &value, &size) == 0 ? value : -1;
}

}  // namespace

Result<std::optional<InheritedSocket>> inheritedSocket() {
    // The variables also reach programs that a service starts; the process id says whom they mean.
    if (variable("LISTEN_PID") != std::to_string(getpid()))
        return std::optional<InheritedSocket>();
    if (variable("LISTEN_FDS") != "1")
        return Error{"handed " + variable("LISTEN_FDS") +
                     " sockets, but it serves one: give its socket unit one ListenStream="};

    sockaddr_storage address{};
    socklen_t size = sizeof address;
    char host[NI_MAXHOST];
    char port[NI_MAXSERV];
    const int domain = option(firstDescriptor, SO_DOMAIN);
    if ((domain != AF_INET && domain != AF_INET6) ||
        option(firstDescriptor, SO_TYPE) != SOCK_STREAM ||
        option(firstDescriptor, SO_ACCEPTCONN) != 1 ||
        getsockname(firstDescriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
        getnameinfo(reinterpret_cast<sockaddr*>(&address), size, host, sizeof host, port,
                    sizeof port, NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        return Error{
            "the socket that it was handed is no listening TCP socket: give its socket unit one "
            "ListenStream= with an IP address and a port"};
    fcntl(firstDescriptor, F_SETFD, FD_CLOEXEC);
    return std::optional(InheritedSocket{firstDescriptor, host, std::atoi(port)});
}

}  // namespace nulo::service
