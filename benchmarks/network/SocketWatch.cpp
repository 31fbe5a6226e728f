#include "network/SocketWatch.h"

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>

namespace nulo {

using namespace std::chrono_literals;

SocketWatch::SocketWatch(const DelayedLink& link, int serverPort)
    : m_link(link),
      m_serverPort(serverPort),
      m_kernel(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG)) {
    if (m_kernel < 0)
        throw std::runtime_error("the kernel tells nothing about sockets");
    m_thread = std::thread([this] { watch(); });
}

SocketWatch::~SocketWatch() {
    m_stopping = true;
    m_thread.join();
    close(m_kernel);
}

BenchClock::time_point SocketWatch::lastWrite() const {
    // The round that goes on may have asked already.
    for (const int before = m_rounds; m_rounds < before + 2 && !m_stopping;)
        std::this_thread::sleep_for(50us);
    return m_lastWrite;
}

void SocketWatch::watch() {
    std::uint16_t port = 0;
    std::uint64_t seen = 0;
    for (; !m_stopping; std::this_thread::sleep_for(150us)) {
        if (port != m_link.clientPort())
            seen = 0;
        port = m_link.clientPort();
        const auto written = bytesWritten(port);
        if (written && *written > seen) {
            seen = *written;
            m_lastWrite = BenchClock::now();
        }
        ++m_rounds;
    }
}

std::optional<std::uint64_t> SocketWatch::bytesWritten(std::uint16_t clientPort) const {
    struct {
        nlmsghdr header{};
        inet_diag_req_v2 request{};
    } question;
    question.header.nlmsg_len = sizeof question;
    question.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    question.header.nlmsg_flags = NLM_F_REQUEST;
    question.request.sdiag_family = AF_INET;
    question.request.sdiag_protocol = IPPROTO_TCP;
    question.request.idiag_ext = 1 << (INET_DIAG_INFO - 1);
    question.request.idiag_states = ~0u;
    inet_diag_sockid& connection = question.request.id;
    connection.idiag_sport = htons(clientPort);
    connection.idiag_dport = htons(static_cast<std::uint16_t>(m_serverPort));
    inet_pton(AF_INET, DelayedLink::clientAddress, connection.idiag_src);
    inet_pton(AF_INET, DelayedLink::serverAddress, connection.idiag_dst);
    connection.idiag_cookie[0] = connection.idiag_cookie[1] = INET_DIAG_NOCOOKIE;

    alignas(nlmsghdr) std::array<char, 4096> answer;
    if (send(m_kernel, &question, sizeof question, 0) < 0)
        return std::nullopt;
    const ssize_t size = recv(m_kernel, answer.data(), answer.size(), 0);
    const auto* header = reinterpret_cast<const nlmsghdr*>(answer.data());
    if (size < static_cast<ssize_t>(NLMSG_LENGTH(sizeof(inet_diag_msg))) ||
        header->nlmsg_type != SOCK_DIAG_BY_FAMILY)
        return std::nullopt;
    const auto* message = static_cast<const inet_diag_msg*>(NLMSG_DATA(header));
    auto left = static_cast<unsigned>(header->nlmsg_len - NLMSG_LENGTH(sizeof *message));
    for (auto* part = reinterpret_cast<const rtattr*>(message + 1); RTA_OK(part, left);
         part = RTA_NEXT(part, left))
        if (part->rta_type == INET_DIAG_INFO) {
            tcp_info info{};
            std::memcpy(&info, RTA_DATA(part), std::min(sizeof info, RTA_PAYLOAD(part)));
            // These three are taken under the connection's lock; its queue's length is not.
            return info.tcpi_bytes_sent - info.tcpi_bytes_retrans + info.tcpi_notsent_bytes;
        }
    return std::nullopt;
}

}  // namespace nulo
