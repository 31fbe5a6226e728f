#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <optional>
#include <set>

namespace nulo {

/// Whose the sockets are that this machine's programs talk through, as the system lists them. Any
/// thread. Each call reads the list of all TCP sockets: some milliseconds.

/// The socket at the other end of a TCP connection.
struct FarEnd {
    /// Whether a program holds the socket. Nobody holds one that is not accepted yet, or that its
    /// program has closed; the system then lists it as root's.
    bool isHeld = false;
    uid_t user = 0;  // only when it is held
};

/// Nothing when the other end of the connected socket is not on this machine, or is gone.
std::optional<FarEnd> farEndOf(int socket);

/// The users whose sockets listen at the address and port; those that listen at every address of
/// the machine count too. A null address, and one that is not of the internet, has none.
std::set<uid_t> listenersAt(const sockaddr* address);

/// Whether what `socket` is connected to is `user`'s or root's: the far end itself, and whatever
/// could accept the connection while nobody has.
bool isConnectedToOwn(int socket, uid_t user = geteuid());

}  // namespace nulo
