#pragma once

#include <httplib.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "service/StillWanted.h"
#include "service/http/Tls.h"

namespace nulo::service {

/// One client's socket, with a bound on every wait and on the size of a request's head. The thread
/// that serves it.
class ConnectionStream final : public httplib::Stream {
  public:
    struct Limits {
        std::chrono::milliseconds idle = std::chrono::seconds(75);   // between two requests
        std::chrono::milliseconds head = std::chrono::seconds(10);   // first byte to end of head
        std::chrono::milliseconds pause = std::chrono::seconds(10);  // between bytes, either way
        std::chrono::milliseconds body = std::chrono::minutes(3);    // end of head to end of body
    };

    /// Takes the socket over. `stopEvent` becomes readable when no further request is to be read.
    /// With `tls` the client has to speak it; its handshake is a part of the first head's time.
    ConnectionStream(int socket, int stopEvent, const TlsContext* tls, Limits limits);
    ~ConnectionStream() override;

    /// Waits for the first byte of a request; false when there will be none.
    bool waitForRequest();
    /// The head has been read: from here on bodyBytes() counts, and the body's time runs.
    void startBody();
    std::uint64_t bodyBytes() const { return m_inHead ? 0 : m_bytesRead; }
    std::uint64_t bytesOut() const { return m_bytesOut; }
    /// Status of the answer to the present request, 0 before it; 1xx are passed over.
    int status() const { return m_status; }
    /// Sends the end, then drops what the client still sends for a short while: closing at once
    /// would make the client's system throw the answer away.
    void closeGently();

    /// Whether the client has hung up, at its latest when its system has said so.
    bool isAbandoned() const;

    bool is_readable() const override;
    bool is_writable() const override;
    ssize_t read(char* target, size_t size) override;
    ssize_t write(const char* data, size_t size) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    socket_t socket() const override { return m_socket; }

  private:
    using Instant = std::chrono::steady_clock::time_point;

    bool waitFor(short events, Instant until) const;
    bool fill();

    const int m_socket;
    Wire m_wire;
    const int m_stopEvent;
    const Limits m_limits;
    std::string m_buffer;
    std::size_t m_next = 0;  // of m_buffer
    Instant m_deadline;
    bool m_inHead = true;
    std::uint64_t m_bytesRead = 0;  // of the head, then of the body
    std::uint64_t m_bytesOut = 0;
    int m_status = 0;
};

/// Tells whether the client whose request this thread is serving still waits for its answer; while
/// a ConnectionStream of this thread is alive. Always true on other threads.
StillWanted clientProbe();

}  // namespace nulo::service
