#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <thread>

#include "common/Report.h"
#include "network/DelayedLink.h"

namespace nulo {

/// When a program last wrote to its socket, by the kernel's own count of each connection, asked for
/// some five times a millisecond: so it is the same for every program, and none is slowed down or
/// has to take part.
class SocketWatch {
  public:
    /// Watches the connection that the link's client opened last. Made at the client's end; the
    /// link outlives it.
    SocketWatch(const DelayedLink& link, int serverPort);
    ~SocketWatch();
    SocketWatch(const SocketWatch&) = delete;
    SocketWatch& operator=(const SocketWatch&) = delete;

    /// When the latest bytes were first seen; counts once more before it says so. Any thread.
    BenchClock::time_point lastWrite() const;

  private:
    void watch();
    /// Bytes written to the connection so far; nothing when it is gone.
    std::optional<std::uint64_t> bytesWritten(std::uint16_t clientPort) const;

    const DelayedLink& m_link;
    const int m_serverPort;
    int m_kernel = -1;
    std::atomic<BenchClock::time_point> m_lastWrite{};
    std::atomic<int> m_rounds = 0;
    std::atomic<bool> m_stopping = false;
    std::thread m_thread;
};

}  // namespace nulo
