#include <cstdio>
#include <cstdlib>

#include "fuzz/StreamSplitting.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto seed = static_cast<std::uint32_t>(std::hash<std::string_view>{}(bytes));
    const std::string fault = nulo::faultInSplitting(bytes, seed);
    if (!fault.empty()) {
        std::fprintf(stderr, "%s\n", fault.c_str());
        std::abort();
    }
    return 0;
}
