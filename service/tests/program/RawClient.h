#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <string_view>

namespace nulo::service {

/// A connection to this machine without an HTTP library, for clients that do not behave.
class RawClient {
  public:
    /// A small buffer makes a server wait that sends more than is read.
    explicit RawClient(int port, int receiveBuffer = 0) {
        if (receiveBuffer > 0)
            setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        const timeval longest{60, 0};  // a server that says nothing fails a test, and ends it
        setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &longest, sizeof longest);
        const sockaddr_in address{
            AF_INET, htons(static_cast<std::uint16_t>(port)), {htonl(INADDR_LOOPBACK)}, {}};
        EXPECT_EQ(connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address),
                  0);
    }
    ~RawClient() { close(m_socket); }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    void send(std::string_view bytes) const {
        EXPECT_EQ(::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL), std::ssize(bytes));
    }
    /// Up to and including `end`, or until the server closes.
    std::string readUntil(std::string_view end) const {
        std::string bytes;
        char piece[4096];
        ssize_t count = 0;
        while ((end.empty() || !bytes.ends_with(end)) &&
               (count = recv(m_socket, piece, end.empty() ? sizeof piece : 1, 0)) > 0)
            bytes.append(piece, static_cast<std::size_t>(count));
        return bytes;
    }
    std::string readAll() const { return readUntil({}); }

  private:
    const int m_socket = socket(AF_INET, SOCK_STREAM, 0);
};

inline std::string postOf(const std::string& path, const std::string& headers,
                          const std::string& body) {
    return "POST " + path + " HTTP/1.1\r\nHost: localhost\r\n" + headers +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

}  // namespace nulo::service
