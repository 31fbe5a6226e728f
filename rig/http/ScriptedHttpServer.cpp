#include "rig/http/ScriptedHttpServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace nulo {
namespace {

std::string trimmedLine(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos)
        return {};
    return std::string(text.substr(first, text.find_last_not_of(" \t\r") - first + 1));
}

/// `head` ends with its last line, without the blank one.
ReceivedRequest parsedHead(std::string_view head) {
    ReceivedRequest request;
    bool first = true;
    while (!head.empty()) {
        const auto end = std::min(head.find('\n'), head.size());
        const std::string line = trimmedLine(head.substr(0, end));
        head.remove_prefix(std::min(end + 1, head.size()));
        if (first) {
            const auto space = line.find(' ');
            request.method = line.substr(0, space);
            if (space != std::string::npos)
                request.target = line.substr(space + 1, line.rfind(' ') - space - 1);
            first = false;
        } else if (const auto colon = line.find(':'); colon != std::string::npos) {
            request.headers.emplace_back(line.substr(0, colon),
                                         trimmedLine(line.substr(colon + 1)));
        }
    }
    return request;
}

}  // namespace

std::optional<std::string> ReceivedRequest::header(std::string_view name) const {
    for (const auto& [key, value] : headers)
        if (std::equal(key.begin(), key.end(), name.begin(), name.end(),
                       [](unsigned char a, unsigned char b) { return tolower(a) == tolower(b); }))
            return value;
    return std::nullopt;
}

bool ScriptedHttpServer::Connection::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

std::string ScriptedHttpServer::Connection::receive(std::size_t most) {
    if (m_unread.empty() && !readMore())
        return {};
    std::string result = m_unread.substr(0, most);
    m_unread.erase(0, result.size());
    return result;
}

void ScriptedHttpServer::Connection::pause(std::chrono::milliseconds duration) {
    std::unique_lock lock(m_server.m_mutex);
    m_server.m_changed.wait_for(lock, duration, [this] { return m_server.m_stopping; });
}

void ScriptedHttpServer::Connection::stall() {
    std::unique_lock lock(m_server.m_mutex);
    m_server.m_changed.wait(lock, [this] { return m_server.m_stopping || m_server.m_released; });
}

void ScriptedHttpServer::Connection::waitForClientToLeave() {
    do
        m_unread.clear();
    while (readMore());
}

void ScriptedHttpServer::Connection::close() {
    const std::lock_guard lock(m_server.m_mutex);
    if (m_socket >= 0)
        ::close(m_socket);
    m_socket = -1;
}

void ScriptedHttpServer::Connection::reset() {
    const linger atOnce{1, 0};
    setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    close();
}

bool ScriptedHttpServer::Connection::readMore() {
    char buffer[64 * 1024];
    const ssize_t count = ::recv(m_socket, buffer, sizeof buffer, 0);
    if (count <= 0)
        return false;
    m_unread.append(buffer, static_cast<std::size_t>(count));
    return true;
}

std::optional<ReceivedRequest> ScriptedHttpServer::Connection::readRequest() {
    std::size_t end = std::string::npos;
    while ((end = m_unread.find("\r\n\r\n")) == std::string::npos)
        if (!readMore())
            return std::nullopt;
    ReceivedRequest request = parsedHead(std::string_view(m_unread).substr(0, end));
    request.connection = m_number;
    m_unread.erase(0, end + 4);
    if (m_server.m_bodies == Bodies::leftToTheHandler)
        return request;
    const auto length = request.header("Content-Length");
    const auto size = length ? std::strtoul(length->c_str(), nullptr, 10) : 0;
    while (m_unread.size() < size)
        if (!readMore())
            return std::nullopt;
    request.body = m_unread.substr(0, size);
    m_unread.erase(0, size);
    return request;
}

void ScriptedHttpServer::Connection::serve() {
    while (m_socket >= 0) {
        const auto request = readRequest();
        if (!request)
            break;
        {
            const std::lock_guard lock(m_server.m_mutex);
            m_server.m_requests.push_back(*request);
        }
        m_server.m_handler(*request, *this);
    }
    close();
}

ScriptedHttpServer::ScriptedHttpServer(Handler handler, Bodies bodies)
    : m_handler(std::move(handler)), m_bodies(bodies) {
    m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (m_listener < 0 || ::bind(m_listener, generic, size) != 0 ||
        ::listen(m_listener, 512) != 0 || ::getsockname(m_listener, generic, &size) != 0)
        throw std::runtime_error("no port for the scripted server");
    m_port = ntohs(address.sin_port);
    m_acceptor = std::thread([this] { acceptConnections(); });
}

ScriptedHttpServer::~ScriptedHttpServer() {
    stop();
}

std::string ScriptedHttpServer::url(std::string_view path) const {
    return "http://127.0.0.1:" + std::to_string(m_port) + std::string(path);
}

int ScriptedHttpServer::acceptedConnections() const {
    const std::lock_guard lock(m_mutex);
    return static_cast<int>(m_connections.size());
}

std::vector<ReceivedRequest> ScriptedHttpServer::requests() const {
    const std::lock_guard lock(m_mutex);
    return m_requests;
}

void ScriptedHttpServer::release() {
    const std::lock_guard lock(m_mutex);
    m_released = true;
    m_changed.notify_all();
}

void ScriptedHttpServer::stop() {
    if (!m_acceptor.joinable())
        return;
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
        m_changed.notify_all();
        ::shutdown(m_listener, SHUT_RDWR);
        for (const Connection& connection : m_connections)
            if (connection.m_socket >= 0)
                ::shutdown(connection.m_socket, SHUT_RDWR);
    }
    m_acceptor.join();
    for (Connection& connection : m_connections)
        connection.m_thread.join();
    ::close(m_listener);
}

void ScriptedHttpServer::acceptConnections() {
    while (true) {
        const int socket = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        const std::lock_guard lock(m_mutex);
        if (socket < 0 || m_stopping) {
            if (socket >= 0)
                ::close(socket);
            return;
        }
        const int on = 1;
        setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        const int number = static_cast<int>(m_connections.size()) + 1;
        m_connections.push_back(Connection(*this, socket, number));
        Connection& connection = m_connections.back();
        connection.m_thread = std::thread([&connection] { connection.serve(); });
    }
}

std::string httpResponse(int status, std::string_view body, std::vector<std::string> headers) {
    std::string response = "HTTP/1.1 " + std::to_string(status) + " Scripted\r\n";
    for (const std::string& header : headers)
        response += header + "\r\n";
    response += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n";
    return response.append(body);
}

std::string httpChunk(std::string_view bytes) {
    char size[24];
    std::snprintf(size, sizeof size, "%zx\r\n", bytes.size());
    return std::string(size).append(bytes).append("\r\n");
}

}  // namespace nulo
