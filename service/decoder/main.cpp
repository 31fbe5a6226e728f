// Decodes what the companion sends over the socket on its standard input: with each message two
// descriptors, an audio file and the socket for its samples (DecoderMessages.h). Ends with the
// companion, and when it had nothing to do for a minute.
//
// A program of its own because libavcodec and libavformat bring some hundred libraries along, which
// take as much memory as a small model and as long to load as the rest of the companion; and
// because files that are made to break a decoder break this one alone, which knows nothing else.

#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <thread>

#include "service/DecoderMessages.h"
#include "service/decoder/LibavDecoder.h"

namespace nulo::service {
namespace {

constexpr int longestIdle = 60'000;  // milliseconds

std::atomic<int> working = 0;

/// False when nobody listens any more.
bool send(int socket, std::int32_t status, const void* content, std::size_t size) {
    iovec parts[] = {{&status, sizeof status}, {const_cast<void*>(content), size}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    ssize_t sent = 0;
    do
        sent = sendmsg(socket, &message, MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    return sent >= 0;
}

void decode(int file, int socket) {
    const auto failure = decodeFile(file, [&](std::span<const std::int16_t> samples) {
        constexpr std::size_t most = mostDecoderBytes / sizeof(std::int16_t);
        for (; !samples.empty(); samples = samples.subspan(std::min(samples.size(), most))) {
            const auto part = samples.first(std::min(samples.size(), most));
            if (!send(socket, samplesFollow, part.data(), part.size_bytes()))
                return false;
        }
        return true;
    });
    const std::string text = failure ? failure->text.substr(0, mostDecoderBytes) : "";
    send(socket, failure ? failure->status : wholeFile, text.data(), text.size());
    close(file);
    close(socket);
    --working;
}

/// What a message brought; none is below 0 when there are two.
std::array<int, 2> descriptorsOf(msghdr& message) {
    std::array<int, 2> descriptors{-1, -1};
    const cmsghdr* const head = CMSG_FIRSTHDR(&message);
    if (head && head->cmsg_type == SCM_RIGHTS && head->cmsg_len == CMSG_LEN(sizeof descriptors))
        std::memcpy(descriptors.data(), CMSG_DATA(head), sizeof descriptors);
    return descriptors;
}

void serve() {
    while (true) {
        pollfd entry{STDIN_FILENO, POLLIN, 0};
        const int ready = poll(&entry, 1, longestIdle);
        if (ready == 0 && working == 0)
            return;
        if (ready <= 0)
            continue;
        char byte = 0;
        iovec part{&byte, 1};
        alignas(cmsghdr) char room[CMSG_SPACE(2 * sizeof(int))];
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = room;
        message.msg_controllen = sizeof room;
        if (recvmsg(STDIN_FILENO, &message, MSG_CMSG_CLOEXEC) <= 0)
            return;
        const auto [file, socket] = descriptorsOf(message);
        try {
            ++working;
            std::thread(decode, file, socket).detach();
        } catch (const std::system_error&) {  // the end of its socket says that it is not done
            --working;
            close(file);
            close(socket);
        }
    }
}

}  // namespace
}  // namespace nulo::service

int main() {
    int type = 0;
    socklen_t size = sizeof type;
    if (getsockopt(STDIN_FILENO, SOL_SOCKET, SO_TYPE, &type, &size) != 0) {
        std::fputs("usage: nulo-decoder <SOCKET\nnulo-service starts it for recordings.\n", stderr);
        return 2;
    }
    signal(SIGTERM,
           SIG_IGN);  // the companion's end, which finishes what is in flight, is this one's
    nulo::service::serve();
    _exit(0);  // threads may be at work for a companion that is gone
}
