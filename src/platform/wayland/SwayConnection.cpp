#include "platform/wayland/SwayConnection.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <utility>

namespace nulo {
namespace {

constexpr char magic[] = "i3-ipc";
constexpr std::size_t magicSize = sizeof magic - 1;
constexpr std::uint32_t largestMessage = 1 << 20;

/// In the machine's byte order, without a gap before it in the message.
struct Header {
    std::uint32_t size;
    std::uint32_t type;
};

}  // namespace

Result<SwayConnection> SwayConnection::open(const std::string& path) {
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    if (path.size() >= sizeof address.sun_path)
        return Error{"$SWAYSOCK is too long for a socket"};
    path.copy(address.sun_path, path.size());
    SwayConnection connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const timeval longest{.tv_sec = 2, .tv_usec = 0};
    for (const int direction : {SO_RCVTIMEO, SO_SNDTIMEO})
        setsockopt(connection.m_socket, SOL_SOCKET, direction, &longest, sizeof longest);
    if (connect(connection.m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
        0)
        return Error{"sway does not answer on " + path};
    return connection;
}

SwayConnection::SwayConnection(SwayConnection&& other) noexcept
    : m_socket(std::exchange(other.m_socket, -1)) {}

SwayConnection::~SwayConnection() {
    if (m_socket >= 0)
        close(m_socket);
}

bool SwayConnection::send(std::uint32_t type, const std::string& content) {
    const Header header{static_cast<std::uint32_t>(content.size()), type};
    std::string message(magic, magicSize);
    message.append(reinterpret_cast<const char*>(&header), sizeof header);
    message += content;
    for (std::size_t sent = 0; sent < message.size();) {
        const ssize_t count =
            ::send(m_socket, message.data() + sent, message.size() - sent, MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

bool SwayConnection::receiveAll(char* to, std::size_t size) {
    while (size > 0) {
        const ssize_t count = recv(m_socket, to, size, 0);
        if (count <= 0)
            return false;
        to += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

std::optional<SwayConnection::Message> SwayConnection::receive() {
    char start[magicSize + sizeof(Header)];
    Header header;
    if (!receiveAll(start, sizeof start) || std::memcmp(start, magic, magicSize) != 0)
        return std::nullopt;
    std::memcpy(&header, start + magicSize, sizeof header);
    if (header.size > largestMessage)
        return std::nullopt;
    Message message{header.type, std::string(header.size, '\0')};
    if (!receiveAll(message.content.data(), header.size))
        return std::nullopt;
    return message;
}

}  // namespace nulo
