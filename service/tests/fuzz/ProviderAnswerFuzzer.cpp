#include "fuzz/FuzzedFile.h"
#include "service/tests/fuzz/Checks.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto seed = static_cast<std::uint32_t>(std::hash<std::string_view>{}(bytes));
    const std::string fault = nulo::service::faultInProviderAnswer(bytes, seed);
    nulo::fuzzingRequires(fault.empty(), fault.c_str());
    return 0;
}
