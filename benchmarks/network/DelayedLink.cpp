#include "network/DelayedLink.h"

#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <netinet/ip.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "rig/process/ChildProcess.h"

namespace nulo {
namespace {

using namespace std::chrono_literals;

void require(bool success, const std::string& what) {
    if (!success)
        throw std::runtime_error("there is no link to measure on: " + what + ": " +
                                 std::strerror(errno) +
                                 " (needs root or user namespaces, and /dev/net/tun)");
}

/// Makes this user the root of a namespace in which they may make others.
void enterUserNamespace() {
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    require(unshare(CLONE_NEWUSER) == 0, "making a user namespace");
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << "0 " + user + " 1";
    std::ofstream("/proc/self/gid_map") << "0 " + group + " 1";
}

}  // namespace

DelayedLink::DelayedLink(std::chrono::milliseconds oneWay) : m_oneWay(oneWay) {
    if (geteuid() != 0)
        enterUserNamespace();
    open(End::server, serverAddress);
    open(End::client, clientAddress);
    m_stop = eventfd(0, EFD_CLOEXEC);
    require(m_stop >= 0, "an event");
    m_carrier = std::thread([this] { carry(); });
}

DelayedLink::~DelayedLink() {
    eventfd_write(m_stop, 1);
    m_carrier.join();
    for (const Side& side : m_sides) {
        close(side.device);
        close(side.space);
    }
    close(m_stop);
}

void DelayedLink::open(End end, const std::string& address) {
    Side& opened = side(end);
    require(unshare(CLONE_NEWNET) == 0, "making a network namespace");
    opened.space = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    require(opened.space >= 0, "opening a network namespace");
    opened.device = ::open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC);
    require(opened.device >= 0, "opening /dev/net/tun");
    ifreq device{};
    std::strcpy(device.ifr_name, "link");
    device.ifr_flags = IFF_TUN | IFF_NO_PI;
    require(ioctl(opened.device, TUNSETIFF, &device) == 0, "making a tun device");
    // A machine may have been set to another congestion control than its distribution's, and hands
    // that on to new namespaces.
    outputOf({"sh", "-ec",
              "ip link set lo up; ip link set dev link up; ip address add " + address +
                  "/24 dev link; ip route replace 10.88.40.0/24 dev link congctl cubic"});
}

void DelayedLink::enter(End end) const {
    const int space = m_sides[static_cast<std::size_t>(end)].space;
    require(setns(space, CLONE_NEWNET) == 0, "changing ends");
}

void DelayedLink::carry() {
    std::array<pollfd, 3> waits{pollfd{m_sides[0].device, POLLIN, 0},
                                pollfd{m_sides[1].device, POLLIN, 0}, pollfd{m_stop, POLLIN, 0}};
    while (waits[2].revents == 0) {
        std::chrono::nanoseconds wait = 500ms;
        for (const Side& from : m_sides)
            if (!from.underway.empty())
                wait = std::clamp(from.underway.front().due - BenchClock::now(), 0ns, wait);
        const timespec time{0, wait.count()};
        ppoll(waits.data(), waits.size(), &time, nullptr);
        for (Side& from : m_sides)
            takeFrom(from);
        for (const End to : {End::client, End::server}) {
            auto& underway = side(to == End::client ? End::server : End::client).underway;
            for (; !underway.empty() && underway.front().due <= BenchClock::now();
                 underway.pop_front()) {
                const std::vector<char>& bytes = underway.front().bytes;
                static_cast<void>(!write(side(to).device, bytes.data(), bytes.size()));
            }
        }
    }
}

void DelayedLink::takeFrom(Side& from) {
    std::array<char, 64 * 1024> buffer;
    for (ssize_t size; (size = read(from.device, buffer.data(), buffer.size())) > 0;) {
        const auto now = BenchClock::now();
        const std::span packet(buffer.data(), static_cast<std::size_t>(size));
        if (&from == &side(End::client))
            note(packet, now);
        from.underway.push_back({now + m_oneWay, {packet.begin(), packet.end()}});
    }
}

void DelayedLink::note(std::span<const char> packet, BenchClock::time_point now) {
    iphdr internet;
    tcphdr segment;
    if (packet.size() < sizeof internet + sizeof segment)
        return;
    std::memcpy(&internet, packet.data(), sizeof internet);
    if (internet.version != 4 || internet.protocol != IPPROTO_TCP)
        return;
    const std::size_t start = internet.ihl * 4u;
    std::memcpy(&segment, packet.data() + start, sizeof segment);
    const std::size_t length = packet.size() - start - segment.doff * 4u;
    const std::uint32_t end = ntohl(segment.seq) + static_cast<std::uint32_t>(length);
    if (segment.syn) {
        m_clientPort = ntohs(segment.source);
        m_dataEnd = end + 1;
    } else if (ntohs(segment.source) == m_clientPort &&
               static_cast<std::int32_t>(end - m_dataEnd) > 0) {
        m_dataEnd = end;
        m_lastData = now;
    }
}

}  // namespace nulo
