#include "service/http/ConnectionStream.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>

#include "base/Clock.h"

namespace nulo::service {
namespace {

using std::chrono::steady_clock;

constexpr std::size_t bufferSize = 16384;
constexpr std::uint64_t largestHead = 65536;

/// A connection is served by one thread from its first request to its end.
thread_local const ConnectionStream* servedHere = nullptr;

/// poll() until `until`, through interruptions; what poll() returns.
int pollUntil(pollfd* entries, nfds_t count, steady_clock::time_point until) {
    for (;;) {
        const auto left = std::max(0LL, wholeMilliseconds(until - steady_clock::now()) + 1);
        const int ready = poll(entries, count, static_cast<int>(left));
        if (ready >= 0 || errno != EINTR)
            return ready;
    }
}

}  // namespace

ConnectionStream::ConnectionStream(int socket, int stopEvent, const TlsContext* tls, Limits limits)
    : m_socket(socket), m_wire(socket, tls), m_stopEvent(stopEvent), m_limits(limits) {
    servedHere = this;
    // Every word leaves by itself, at once.
    const int on = 1;
    setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

ConnectionStream::~ConnectionStream() {
    servedHere = nullptr;
    m_wire.end();
    close(m_socket);
}

bool ConnectionStream::waitForRequest() {
    m_bytesRead = 0;
    m_bytesOut = 0;
    m_status = 0;
    m_inHead = true;
    if (m_next == m_buffer.size()) {
        pollfd entries[] = {{m_socket, POLLIN, 0}, {m_stopEvent, POLLIN, 0}};
        const auto idleEnd = steady_clock::now() + m_limits.idle;
        // A request that is already here is served, also when the service stops.
        if (pollUntil(entries, 2, idleEnd) <= 0 || entries[0].revents == 0)
            return false;
    }
    m_deadline = steady_clock::now() + m_limits.head;
    return m_next < m_buffer.size() || fill();
}

void ConnectionStream::startBody() {
    m_inHead = false;
    m_bytesRead = 0;
    m_deadline = steady_clock::now() + m_limits.body;
}

void ConnectionStream::closeGently() {
    m_wire.end();
    const auto end = steady_clock::now() + std::chrono::seconds(2);
    char dropped[bufferSize];
    while (waitFor(POLLIN, end) && recv(m_socket, dropped, sizeof dropped, MSG_DONTWAIT) > 0 &&
           steady_clock::now() < end) {
    }
}

bool ConnectionStream::waitFor(short events, Instant until) const {
    pollfd entry{m_socket, events, 0};
    return pollUntil(&entry, 1, until) > 0;
}

bool ConnectionStream::fill() {
    m_buffer.resize(bufferSize);  // a whole TLS record: none of it is left where poll() cannot see
    m_next = 0;
    Wire::Outcome outcome;
    for (;;) {
        const Instant now = steady_clock::now();
        if (now >= m_deadline)
            break;
        outcome = m_wire.receive(m_buffer.data(), m_buffer.size());
        if (outcome.count > 0 || outcome.wait == 0 ||
            !waitFor(outcome.wait, std::min(m_deadline, now + m_limits.pause)))
            break;
    }
    m_buffer.resize(static_cast<std::size_t>(outcome.count));
    return outcome.count > 0;
}

bool ConnectionStream::isAbandoned() const {
    pollfd entry{m_socket, POLLRDHUP, 0};
    return poll(&entry, 1, 0) > 0 && (entry.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

bool ConnectionStream::is_readable() const {
    return m_next < m_buffer.size() || waitFor(POLLIN, steady_clock::now());
}

bool ConnectionStream::is_writable() const {
    return waitFor(POLLOUT, steady_clock::now() + m_limits.pause);
}

ssize_t ConnectionStream::read(char* target, size_t size) {
    const bool headTooLarge = m_inHead && m_bytesRead >= largestHead;
    if (headTooLarge || (m_next == m_buffer.size() && !fill()))
        return -1;
    const std::size_t count = std::min(size, m_buffer.size() - m_next);
    std::memcpy(target, m_buffer.data() + m_next, count);
    m_next += count;
    m_bytesRead += count;
    return static_cast<ssize_t>(count);
}

ssize_t ConnectionStream::write(const char* data, size_t size) {
    constexpr std::string_view statusLine = "HTTP/1.1 ";
    if (m_status < 200 && std::string_view(data, size).substr(0, statusLine.size()) == statusLine)
        std::from_chars(data + statusLine.size(), data + size, m_status);
    for (std::size_t sent = 0; sent < size;) {
        const auto [count, wait] = m_wire.send(data + sent, size - sent);
        sent += static_cast<std::size_t>(count);
        if (count == 0 && (wait == 0 || !waitFor(wait, steady_clock::now() + m_limits.pause)))
            return -1;
    }
    m_bytesOut += size;
    return static_cast<ssize_t>(size);
}

// Nothing here asks who the client is.
void ConnectionStream::get_remote_ip_and_port(std::string& ip, int& port) const {
    ip.clear();
    port = 0;
}

void ConnectionStream::get_local_ip_and_port(std::string& ip, int& port) const {
    ip.clear();
    port = 0;
}

StillWanted clientProbe() {
    return [] { return !servedHere || !servedHere->isAbandoned(); };
}

}  // namespace nulo::service
