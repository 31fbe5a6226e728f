#pragma once

#include <cstdint>

namespace nulo {

/// What a TCP connection has carried so far, as the kernel counts.
struct SocketActivity {
    std::uint64_t acknowledged = 0;  // bytes that the peer has taken
    std::uint64_t received = 0;      // bytes that came; the end of the stream counts as one
    std::uint64_t waiting = 0;       // bytes written that the peer has not taken yet
};

/// All zeros when `socket` is not a TCP connection. On a slow line a request waits in the kernel's
/// buffer long after the program has written all of it.
SocketActivity activityOf(int socket);

/// The local port of a TCP socket, 0 when it has none.
int localPortOf(int socket);

}  // namespace nulo
