#include "base/SocketOwner.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <type_traits>

namespace nulo {
namespace {

static_assert(std::is_same_v<UserId, uid_t>);

/// An address and a port. IPv4 is written as the IPv6 address that stands for it, because a socket
/// that serves both lists its IPv4 connections so.
struct Endpoint {
    std::array<std::uint32_t, 4> address{};  // as it lies in memory, in the network's byte order
    unsigned port = 0;

    bool operator==(const Endpoint&) const = default;
};

struct Row {
    Endpoint local, remote;
    unsigned state = 0;
    UserId user = 0;
    unsigned long long inode = 0;  // 0 when no program holds the socket
};

constexpr unsigned listening = 10;  // as the kernel counts the states of TCP

Endpoint mapped(std::uint32_t ipv4, unsigned port) {
    return {{0, 0, htonl(0xFFFF), ipv4}, port};
}

std::optional<Endpoint> endpointOf(const sockaddr* address) {
    if (address && address->sa_family == AF_INET) {
        sockaddr_in four{};
        std::memcpy(&four, address, sizeof four);
        return mapped(four.sin_addr.s_addr, ntohs(four.sin_port));
    }
    if (address && address->sa_family == AF_INET6) {
        sockaddr_in6 six{};
        std::memcpy(&six, address, sizeof six);
        Endpoint result;
        std::memcpy(result.address.data(), &six.sin6_addr, sizeof six.sin6_addr);
        result.port = ntohs(six.sin6_port);
        return result;
    }
    return std::nullopt;
}

/// `digits` are 8 or 32: each 8 are one word as the machine reads it from memory.
bool parse(const char* digits, Endpoint& endpoint) {
    std::array<std::uint32_t, 4>& word = endpoint.address;
    if (std::strlen(digits) == 8 && std::sscanf(digits, "%8x", &word[0]) == 1) {
        endpoint = mapped(word[0], endpoint.port);
        return true;
    }
    return std::sscanf(digits, "%8x%8x%8x%8x", &word[0], &word[1], &word[2], &word[3]) == 4;
}

bool parse(const char* line, Row& row) {
    char local[33], remote[33];
    return std::sscanf(line,
                       " %*u: %32[0-9A-Fa-f]:%x %32[0-9A-Fa-f]:%x %x %*x:%*x %*x:%*x %*x %u %*u "
                       "%llu",
                       local, &row.local.port, remote, &row.remote.port, &row.state, &row.user,
                       &row.inode) == 7 &&
           parse(local, row.local) && parse(remote, row.remote);
}

template <typename Visit>
void forEachSocket(Visit visit) {
    for (const char* list : {"/proc/self/net/tcp", "/proc/self/net/tcp6"}) {
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(list, "re"),
                                                                   &std::fclose);
        char line[512];
        while (file && std::fgets(line, sizeof line, file.get())) {
            Row row;
            if (parse(line, row))
                visit(row);
        }
    }
}

template <typename Ask>
std::optional<Endpoint> addressOf(int socket, Ask ask) {
    sockaddr_storage storage{};
    auto* address = reinterpret_cast<sockaddr*>(&storage);
    socklen_t size = sizeof storage;
    if (ask(socket, address, &size) != 0)
        return std::nullopt;
    return endpointOf(address);
}

bool coversEveryAddress(const Endpoint& endpoint) {
    return endpoint == Endpoint{{}, endpoint.port} || endpoint == mapped(0, endpoint.port);
}

std::set<UserId> listenersAt(const Endpoint& endpoint) {
    std::set<UserId> users;
    forEachSocket([&](const Row& row) {
        if (row.state == listening && row.local.port == endpoint.port &&
            (row.local == endpoint || coversEveryAddress(row.local)))
            users.insert(row.user);
    });
    return users;
}

}  // namespace

std::optional<FarEnd> farEndOf(int socket) {
    const auto near = addressOf(socket, ::getsockname);
    const auto far = addressOf(socket, ::getpeername);
    std::optional<FarEnd> found;
    // The list is read page by page; a row can be missing when others go away in between.
    for (int reading = 0; reading < 3 && near && far && !found; ++reading)
        forEachSocket([&](const Row& row) {
            if (row.state != listening && row.local == *far && row.remote == *near &&
                (!found || !found->isHeld))
                found = FarEnd{row.inode != 0, row.user};
        });
    return found;
}

std::set<UserId> listenersAt(const sockaddr* address) {
    const auto endpoint = endpointOf(address);
    return endpoint ? listenersAt(*endpoint) : std::set<UserId>();
}

bool isConnectedToOwn(int socket, UserId user) {
    const auto isOwn = [user](UserId other) { return other == user || other == 0; };
    // In this order: a connection that nobody has accepted when the list is read the second time
    // waits at a listener that was there the first time.
    const auto address = addressOf(socket, ::getpeername);
    const std::set<UserId> listeners = address ? listenersAt(*address) : std::set<UserId>();
    const auto farEnd = farEndOf(socket);
    if (!farEnd)
        return false;
    if (farEnd->isHeld)
        return isOwn(farEnd->user);
    return !listeners.empty() && std::all_of(listeners.begin(), listeners.end(), isOwn);
}

bool isConnectedToOwn(int socket) {
    return isConnectedToOwn(socket, ::geteuid());
}

}  // namespace nulo
