#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "common/Report.h"

namespace nulo {

/// A far server on one machine: two network namespaces, and a line between them that hands every IP
/// packet on after a delay, in order and without loss. The system's own TCP is at both ends, so
/// connecting, TLS and slow start really pay for every round trip.
///
/// tc's netem does the same by one command, on kernels that were built with it; many were not, and
/// tun devices and namespaces are everywhere.
class DelayedLink {
  public:
    enum class End { client, server };
    static constexpr const char* clientAddress = "10.88.40.1";
    static constexpr const char* serverAddress = "10.88.40.2";

    /// While the process has one thread. Needs root, or leave to make user namespaces; throws with
    /// the reason where it has neither.
    explicit DelayedLink(std::chrono::milliseconds oneWay);
    ~DelayedLink();
    DelayedLink(const DelayedLink&) = delete;
    DelayedLink& operator=(const DelayedLink&) = delete;

    /// Puts the calling thread, and the threads and programs that it starts, at that end.
    void enter(End end) const;

    /// Of the connection that the client opened last: when data that was not there before came from
    /// the client to the link, and the client's port. Any thread.
    BenchClock::time_point lastDataFromClient() const { return m_lastData; }
    std::uint16_t clientPort() const { return m_clientPort; }

  private:
    struct Packet {
        BenchClock::time_point due;
        std::vector<char> bytes;
    };
    struct Side {
        int space = -1;   // the network namespace
        int device = -1;  // its tun device
        std::deque<Packet> underway;
    };

    Side& side(End end) { return m_sides[static_cast<std::size_t>(end)]; }
    void open(End end, const std::string& address);
    void carry();
    void takeFrom(Side& from);
    void note(std::span<const char> packet, BenchClock::time_point now);

    const std::chrono::milliseconds m_oneWay;
    std::array<Side, 2> m_sides;  // indexed by End
    std::atomic<BenchClock::time_point> m_lastData{};
    std::atomic<std::uint16_t> m_clientPort = 0;
    std::uint32_t m_dataEnd = 0;  // the sequence number after that data
    int m_stop = -1;
    std::thread m_carrier;
};

}  // namespace nulo
