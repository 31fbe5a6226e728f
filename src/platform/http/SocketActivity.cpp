#include "platform/http/SocketActivity.h"

#include <linux/sockios.h>
#include <linux/tcp.h>  // netinet/tcp.h lacks the byte counters
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace nulo {

SocketActivity activityOf(int socket) {
    tcp_info info{};
    socklen_t size = sizeof info;
    if (getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0)
        return {};
    int waiting = 0;
    if (ioctl(socket, SIOCOUTQ, &waiting) != 0)
        waiting = 0;
    return {info.tcpi_bytes_acked, info.tcpi_bytes_received, static_cast<std::uint64_t>(waiting)};
}

int localPortOf(int socket) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        return 0;
    if (address.ss_family == AF_INET)
        return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
    if (address.ss_family == AF_INET6)
        return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
    return 0;
}

}  // namespace nulo
