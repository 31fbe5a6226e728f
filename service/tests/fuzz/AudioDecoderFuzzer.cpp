#include <unistd.h>

#include "fuzz/Fuzz.h"
#include "service/decoder/LibavDecoder.h"

// Whatever the bytes are: they are refused, or give no more sound than was asked for.
std::string nulo::faultIn(std::string_view bytes, std::uint32_t) {
    using namespace nulo::service;
    constexpr std::size_t most = 60UL * speechRate;
    std::size_t count = 0;
    const int file = Spool(bytes).makeDescriptor();
    const auto refused = decodeFile(file, [&](std::span<const std::int16_t> samples) {
        count += samples.size();
        return count < most;
    });
    close(file);
    return !refused && count > 2 * most ? "a recording is longer than it may be" : "";
}
