#include "base/HttpUrl.h"
#include "config/ServiceConfig.h"
#include "fuzz/FuzzedFile.h"

using namespace nulo;

// Whatever the file holds: it is refused in one line, or names an address that requests can be sent
// to without being read on the way, and headers that cannot smuggle in others.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const FuzzedFile file("service.json");
    file.write({reinterpret_cast<const char*>(data), size});
    const auto config = loadServiceConfig(file.path(), "http://127.0.0.1:1", [](auto) {});
    if (!config) {
        const std::string& line = config.error().description;
        fuzzingRequires(!line.empty() && line.find('\n') == std::string::npos,
                        "the refusal is not one line");
        return 0;
    }
    fuzzingRequires(isValidHttpUrl(config.value().baseURL + "/api/chat"),
                    "no request can be sent to the address");
    fuzzingRequires(isSecureHttpUrl(config.value().baseURL + "/api/chat"),
                    "a request to the address can be read on the way");
    for (const auto& [name, value] : config.value().authHeaders)
        fuzzingRequires(!name.empty() && (name + value).find_first_of("\r\n") == std::string::npos,
                        "a header holds a line break");
    return 0;
}
