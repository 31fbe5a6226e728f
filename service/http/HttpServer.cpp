#include "service/http/HttpServer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "service/http/ConnectionThreads.h"
#include "service/http/TranscribeForm.h"

namespace nulo::service {
namespace {

/// Its end is where the connection ends.
constexpr std::string_view tooManyConnections =
    "HTTP/1.1 503 Service Unavailable\r\nContent-Type: text/plain; charset=utf-8\r\n"
    "Connection: close\r\nRetry-After: 3\r\n\r\n"
    "The service has too many connections. Try again in a few seconds.\n";

int newEvent() {
    const int event = eventfd(0, EFD_CLOEXEC);
    if (event < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
    return event;
}

/// What a client chose, fit for a terminal.
std::string printable(std::string text) {
    text.resize(std::min<std::size_t>(text.size(), 100));
    std::replace_if(
        text.begin(), text.end(),
        [](char character) { return character <= 32 || character >= 127; }, '?');
    return text;
}

}  // namespace

HttpServer::HttpServer(const Clock& clock, Print print, Limits limits)
    : m_clock(clock), m_print(std::move(print)), m_limits(limits), m_stopEvent(newEvent()) {
    // What answers tell clients about the connection; the waits themselves are ConnectionStream's.
    set_keep_alive_timeout(
        std::chrono::duration_cast<std::chrono::seconds>(limits.connection.idle).count());
    set_keep_alive_max_count(1000000);
    // The library would share the port with a second service of the same user.
    set_socket_options([](socket_t socket) {
        const int on = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    });
}

HttpServer::~HttpServer() {
    close(m_stopEvent);
}

Result<int> HttpServer::listenOn(const std::string& address, int port) {
    errno = 0;
    const int bound = port == 0                     ? bind_to_any_port(address)
                      : bind_to_port(address, port) ? port
                                                    : -1;
    if (bound > 0) {
        // The library lets five wait; of a crowd the others would try again after a second or more.
        ::listen(svr_sock_, static_cast<int>(m_limits.connections));
        return bound;
    }
    const int error = errno;
    std::string why = "it is no address of this machine";
    if (error == EADDRINUSE)
        why =
            "another program, perhaps another nulo-service, listens there already; stop it or "
            "choose another --port";
    else if (error == EACCES)
        why = "ports below 1024 need more rights; choose another --port";
    else if (error != 0 && error != EADDRNOTAVAIL)
        why = std::strerror(error);
    return Error{"cannot listen on " + address + " port " + std::to_string(port) + ": " + why};
}

void HttpServer::listenOn(const InheritedSocket& socket) {
    svr_sock_ = socket.descriptor;
    m_inherited = true;
}

/// A loop of our own: the library's ends only when the socket is shut down, which would end a
/// service manager's listening too.
void HttpServer::run() {
    m_acceptingThread = std::this_thread::get_id();
    ConnectionThreads connections(m_limits.connections);
    // A client may be gone again between poll() and accept().
    fcntl(svr_sock_, F_SETFL, fcntl(svr_sock_, F_GETFL) | O_NONBLOCK);
    pollfd entries[] = {{svr_sock_, POLLIN, 0}, {m_stopEvent, POLLIN, 0}};
    while (poll(entries, 2, -1) < 0 || entries[1].revents == 0) {
        const int socket = accept4(svr_sock_, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket >= 0)
            connections.enqueue([this, socket] { process_and_close_socket(socket); });
        else if (errno == EBADF || errno == EINVAL || errno == ENOTSOCK)
            break;
        else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
            poll(&entries[1], 1, 100);  // until a connection has ended
    }
    if (!m_inherited)
        shutdown(svr_sock_, SHUT_RDWR);
    connections.shutdown();
    // Not before: the library takes it for the order to cut the answers in flight.
    close(svr_sock_.exchange(INVALID_SOCKET));
}

void HttpServer::finish() {
    const eventfd_t one = 1;
    eventfd_write(m_stopEvent, one);
}

bool HttpServer::isFinishing() const {
    pollfd entry{m_stopEvent, POLLIN, 0};
    return poll(&entry, 1, 0) > 0;
}

bool HttpServer::process_and_close_socket(socket_t socket) {
    if (std::this_thread::get_id() == m_acceptingThread) {
        if (!m_tls)  // a handshake would hold the others up
            send(socket, tooManyConnections.data(), tooManyConnections.size(),
                 MSG_NOSIGNAL | MSG_DONTWAIT);
        shutdown(socket, SHUT_WR);
        char dropped[16384];
        for (int i = 0; i < 16 && recv(socket, dropped, sizeof dropped, MSG_DONTWAIT) > 0; ++i) {
        }
        close(socket);
        m_print("refused a connection: too many");
        return false;
    }
    ConnectionStream stream(socket, m_stopEvent, m_tls, m_limits.connection);
    try {
        bool canFollow = true;
        while (canFollow && stream.waitForRequest())
            canFollow = serveRequest(stream);
        if (!canFollow)
            stream.closeGently();
    } catch (const std::exception& error) {
        m_print(std::string("closed a connection: ") + error.what());
    }
    return true;
}

/// Whether another request can follow on the connection.
bool HttpServer::serveRequest(ConnectionStream& stream) {
    auto start = m_clock.now();
    std::string what = "- -";
    std::string path;
    std::uint64_t bodySize = 0;
    bool closing = isFinishing();
    bool clientCloses = false;
    const bool served =
        process_request(stream, closing, clientCloses, [&](httplib::Request& request) {
            stream.startBody();
            request.ranges.clear();  // answers are whole
            hideForm(request);
            start = m_clock.now();
            path = request.path;
            what = printable(request.method) + " " + printable(request.path);
            if (request.has_header("Transfer-Encoding"))
                closing = true;  // where such a body ends is for the library alone to know
            bodySize =
                std::strtoull(request.get_header_value("Content-Length").c_str(), nullptr, 10);
        });
    if (stream.status() != 0) {
        onServed(path, stream.status(), m_clock.now() - start, !served);
        m_print(what + " " + std::to_string(stream.status()) + " " +
                std::to_string(wholeMilliseconds(m_clock.now() - start)) + " ms, " +
                std::to_string(stream.bodyBytes()) + " bytes in, " +
                std::to_string(stream.bytesOut()) + " out" + (served ? "" : ", broken off"));
    }
    // Left-over bytes of a body must not be read as a request.
    return served && !closing && !clientCloses && stream.bodyBytes() == bodySize;
}

}  // namespace nulo::service
