#include "service/AudioDecoder.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include "service/DecoderMessages.h"
#include "service/DecoderProcess.h"

namespace nulo::service {
namespace {

constexpr int askEvery = 50;  // milliseconds

/// Closed at the end of its scope.
class Descriptor {
  public:
    explicit Descriptor(int number) : m_number(number) {}
    ~Descriptor() {
        if (isOpen())
            close(m_number);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    bool isOpen() const { return m_number >= 0; }
    int number() const { return m_number; }

  private:
    const int m_number;
};

Failure undecodable(const std::string& why) {
    return {415, "The audio cannot be decoded (" + why +
                     "). Send a complete file in a usual format, such as WAV or MPEG-4 (AAC).\n"};
}

/// The samples of one file, as they arrive.
class Arrival {
  public:
    enum class End { whole, unwanted, refused, broken };

    Arrival(std::chrono::seconds longest, const TakeSamples& take)
        : m_longest(longest), m_take(take) {}

    End follow(int socket) {
        while (true) {
            pollfd entry{socket, POLLIN, 0};
            if (poll(&entry, 1, askEvery) <= 0) {
                if (!m_take({}))
                    return End::unwanted;
                continue;
            }
            std::int32_t status = 0;
            iovec parts[] = {{&status, sizeof status}, {m_content.data(), mostDecoderBytes}};
            msghdr message{};
            message.msg_iov = parts;
            message.msg_iovlen = 2;
            const ssize_t size = recvmsg(socket, &message, 0);
            if (size < 0 && errno == EINTR)
                continue;
            if (size < static_cast<ssize_t>(sizeof status))
                return End::broken;
            const std::size_t bytes = static_cast<std::size_t>(size) - sizeof status;
            if (status == wholeFile)
                return End::whole;
            if (status != samplesFollow)
                return refuse({415, std::string(reinterpret_cast<char*>(m_content.data()), bytes)});
            const std::size_t count = bytes / sizeof m_content[0];
            if (m_count + count > static_cast<std::size_t>(m_longest.count()) * speechRate)
                return refuse({413, "The recording is longer than " +
                                        std::to_string(m_longest.count() / 60) +
                                        " minutes. Send it in shorter pieces.\n"});
            m_count += count;
            if (!m_take({m_content.data(), count}))
                return End::unwanted;
        }
    }

    bool hasBegun() const { return m_count > 0; }
    const Failure& failure() const { return m_failure; }

  private:
    End refuse(Failure failure) {
        m_failure = std::move(failure);
        return End::refused;
    }

    const std::chrono::seconds m_longest;
    const TakeSamples& m_take;
    std::vector<std::int16_t> m_content =
        std::vector<std::int16_t>(mostDecoderBytes / sizeof(std::int16_t));
    std::size_t m_count = 0;
    Failure m_failure;
};

}  // namespace

std::optional<Failure> decodeSpeech(const Spool& bytes, std::chrono::seconds longest,
                                    const TakeSamples& take) {
    const Descriptor file(bytes.makeDescriptor());
    if (!file.isOpen())
        return Failure{503, "The service has no room for the recording. Try again soon.\n", 3};
    Arrival arrival(longest, take);
    // One that was idle for long may have ended just now; another file may have broken it.
    for (int attempt = 0; attempt < 2 && !arrival.hasBegun(); ++attempt) {
        const auto decoder = DecoderProcess::running();
        if (!decoder)
            return Failure{500, "The service fails: " + decoder.error().description + ".\n"};
        const Descriptor socket(decoder.value()->decode(file.number()));
        const auto end = socket.isOpen() ? arrival.follow(socket.number()) : Arrival::End::broken;
        if (end == Arrival::End::refused)
            return arrival.failure();
        if (end != Arrival::End::broken)
            return std::nullopt;
        DecoderProcess::retire();
    }
    return undecodable("its decoder breaks off");
}

Result<std::vector<std::int16_t>, Failure> decodedSpeech(const Spool& file,
                                                         std::chrono::seconds longest,
                                                         const StillWanted& stillWanted) {
    std::vector<std::int16_t> all;
    bool wanted = true;
    const auto failure = decodeSpeech(file, longest, [&](std::span<const std::int16_t> samples) {
        all.insert(all.end(), samples.begin(), samples.end());
        return wanted = stillWanted();
    });
    if (failure)
        return *failure;
    if (!wanted)
        return clientIsGone();
    return all;
}

void prepareDecoder() {
    static_cast<void>(DecoderProcess::running().ok());
}

void letDecoderGo() {
    DecoderProcess::retire();
}

}  // namespace nulo::service
