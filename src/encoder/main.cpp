// Encodes the float32 frames (mono, native byte order) that come over the socket on its standard
// input, into the file, until their end; then answers there with "ok". The first failure ends it,
// with the reason as its answer.
//
// A program of its own because libavformat brings some hundred libraries along: Nulo starts in a
// third of the time without them and takes half of the memory while nobody speaks.

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>

#include "encoder/LibavAacWriter.h"

namespace nulo {
namespace {

/// Blocks until some frames are there; none at the end.
class FrameReader {
  public:
    std::span<const float> next() {
        // What is left of a frame that came in two pieces.
        std::memmove(bytes(), bytes() + m_frames * sizeof(float), m_rest);
        std::size_t filled = m_rest;
        do {
            const ssize_t count =
                read(STDIN_FILENO, bytes() + filled, m_buffer.size() * sizeof(float) - filled);
            if (count < 0 && errno == EINTR)
                continue;
            if (count <= 0)
                return {};
            filled += static_cast<std::size_t>(count);
        } while (filled < sizeof(float));
        m_frames = filled / sizeof(float);
        m_rest = filled % sizeof(float);
        return {m_buffer.data(), m_frames};
    }

  private:
    std::byte* bytes() { return reinterpret_cast<std::byte*>(m_buffer.data()); }

    std::array<float, 4096> m_buffer{};
    std::size_t m_frames = 0;
    std::size_t m_rest = 0;
};

std::string encode(const std::filesystem::path& file, const AudioFileSettings& settings) {
    auto writer = makeLibavAacWriter(file, settings);
    FrameReader reader;
    Outcome outcome = writer ? Outcome(Success{}) : writer.error();
    for (std::span<const float> frames; outcome && !(frames = reader.next()).empty();)
        outcome = writer.value()->write(frames);
    if (outcome)
        outcome = writer.value()->close();
    return outcome ? "ok" : outcome.error().description;
}

}  // namespace
}  // namespace nulo

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fputs("usage: nulo-encoder FILE SAMPLE_RATE BIT_RATE\nNulo starts it for each take.\n",
                   stderr);
        return 2;
    }
    const std::string answer = nulo::encode(
        argv[1], {.sampleRate = std::strtod(argv[2], nullptr), .bitRate = std::atoi(argv[3])});
    send(STDIN_FILENO, answer.data(), answer.size(), MSG_NOSIGNAL);
    return 0;
}
