#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "base/FileIO.h"
#include "fuzz/Fuzz.h"

#ifdef NULO_FUZZING

// Ends the run at a fault, with libFuzzer keeping the input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto seed = static_cast<std::uint32_t>(std::hash<std::string_view>{}(bytes));
    const std::string fault = nulo::faultIn(bytes, seed);
    if (fault.empty())
        return 0;
    std::fprintf(stderr, "seed %u: %s\n", seed, fault.c_str());
    std::abort();
}

#else

// Replays a folder of inputs: what the fuzzer begins with, and all that ever made trouble.
int main(int, char** arguments) {
    bool isEmpty = true;
    bool isSound = true;
    for (const auto& entry : std::filesystem::directory_iterator(arguments[1])) {
        const auto bytes = nulo::readFile(entry.path(), 1 << 20);
        isEmpty = false;
        for (std::uint32_t seed = 1; seed <= 20; ++seed)
            if (const std::string fault = nulo::faultIn(bytes.value(), seed); !fault.empty()) {
                std::printf("%s, seed %u: %s\n", entry.path().c_str(), seed, fault.c_str());
                isSound = false;
            }
    }
    return isSound && !isEmpty ? 0 : 1;
}

#endif
