#pragma once

#include <cstdint>

namespace nulo {

/// Bytes that the peer has sent or acknowledged so far; 0 when `socket` is not a TCP connection.
/// What waits in the kernel's send buffer is not counted: on a slow line that is where a request is
/// after the program has written all of it.
std::uint64_t bytesExchanged(int socket);

/// The local port of a TCP socket, 0 when it has none.
int localPortOf(int socket);

}  // namespace nulo
