#pragma once

#include <optional>
#include <set>

struct sockaddr;

/// Tells which users own the sockets that programs of this machine talk through. Any thread. Each
/// call reads the system's list of all TCP sockets, which takes some milliseconds.
namespace nulo {

using UserId = unsigned;  // the system's uid_t

/// The socket at the other end of a TCP connection.
struct FarEnd {
    /// Whether a program holds the socket. No program holds a socket that is not accepted yet, or
    /// that its program has closed; the system then lists it as root's.
    bool isHeld = false;
    UserId user = 0;  // only when it is held
};

/// The far end of a connected socket; nothing when it is not on this machine, or is gone.
std::optional<FarEnd> farEndOf(int socket);

/// The users whose sockets listen at the address and port; those that listen at every address of
/// the machine count too. A null address, and one that is not of the internet, has none.
std::set<UserId> listenersAt(const sockaddr* address);

/// Whether what `socket` is connected to is `user`'s or root's. While no program has accepted the
/// connection, every listener that could accept it must be theirs.
bool isConnectedToOwn(int socket, UserId user);

/// The same for the user who runs this program.
bool isConnectedToOwn(int socket);

}  // namespace nulo
