#include "base/HttpUrl.h"
#include "fuzz/FuzzedFile.h"
#include "service/gateway/GatewayConfig.h"
#include "service/offline/Sha256.h"

using namespace nulo;

// Whatever the file holds: it is refused in one line, or names providers that can be asked without
// being read on the way, with keys that cannot smuggle in other headers.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const FuzzedFile file("nulo-service.json");
    file.write({reinterpret_cast<const char*>(data), size});
    const auto config = service::readGatewayConfig(file.path(), [](auto) {});
    if (!config) {
        const std::string& line = config.error().description;
        fuzzingRequires(!line.empty() && line.find('\n') == std::string::npos,
                        "the refusal is not one line");
        return 0;
    }
    for (const service::Provider& provider : config.value().providers) {
        fuzzingRequires(isValidHttpUrl(provider.baseURL + "/chat/completions"),
                        "no request can be sent to a provider");
        fuzzingRequires(isSecureHttpUrl(provider.baseURL + "/chat/completions"),
                        "a request to a provider can be read on the way");
        for (const unsigned char character : provider.apiKey)
            fuzzingRequires(character > 32 && character < 127, "a key is no part of a header line");
    }
    static_cast<void>(service::descriptionOf(config.value()));
    for (const std::string& token : config.value().tokens)
        fuzzingRequires(service::isSha256(token), "a token is no digest");
    fuzzingRequires(
        !config.value().port || (*config.value().port >= 0 && *config.value().port < 65536),
        "a port is none");
    return 0;
}
