#include "fuzz/FuzzedFile.h"
#include "service/offline/AudioDecoder.h"
#include "service/offline/SpeechEngine.h"

// Whatever the bytes are: they are refused, or give no more sound than was asked for.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace nulo::service;
    constexpr auto longest = std::chrono::seconds(60);
    const Spool file(std::string_view(reinterpret_cast<const char*>(data), size));
    const auto samples = decodedSpeech(file, longest, [] { return true; });
    nulo::fuzzingRequires(
        !samples || samples.value().size() <= (longest + longest).count() * std::size_t{speechRate},
        "a recording is longer than it may be");
    return 0;
}
