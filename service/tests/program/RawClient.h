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
    explicit RawClient(int port, int receiveBuffer = 0)
        : m_socket(socket(AF_INET, SOCK_STREAM, 0)) {
        if (receiveBuffer > 0)
            setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        const timeval longest{60, 0};  // a server that says nothing fails a test, and ends it
        setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &longest, sizeof longest);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    ~RawClient() { close(m_socket); }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    void send(std::string_view bytes) const {
        EXPECT_EQ(::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  ssize_t(bytes.size()));
    }
    /// Up to and including `end`, or until the server closes.
    std::string readUntil(std::string_view end) const {
        std::string bytes;
        char byte = 0;
        while (!bytes.ends_with(end) && recv(m_socket, &byte, 1, 0) == 1)
            bytes += byte;
        return bytes;
    }
    std::string readAll() const {
        std::string bytes;
        char piece[4096];
        for (ssize_t count = 0; (count = recv(m_socket, piece, sizeof piece, 0)) > 0;)
            bytes.append(piece, static_cast<std::size_t>(count));
        return bytes;
    }

  private:
    const int m_socket;
};

inline std::string postOf(const std::string& path, const std::string& headers,
                          const std::string& body) {
    return "POST " + path + " HTTP/1.1\r\nHost: localhost\r\n" + headers +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

}  // namespace nulo::service
