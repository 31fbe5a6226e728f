#include "fuzz/Fuzz.h"
#include "service/AudioDecoder.h"

// Whatever the bytes are: they are refused, or give no more sound than was asked for.
std::string nulo::faultIn(std::string_view bytes, std::uint32_t) {
    using namespace nulo::service;
    constexpr std::chrono::seconds longest(60);
    const auto samples = decodedSpeech(Spool(bytes), longest, [] { return true; });
    const bool isTooLong = samples && samples.value().size() > 120UL * speechRate;
    return isTooLong ? "a recording is longer than it may be" : "";
}
