#include "fuzz/Fuzz.h"
#include "service/gateway/ChatEvents.h"
#include "service/gateway/GatewayRecogniser.h"
#include "service/gateway/UpstreamFailure.h"

namespace nulo {
namespace {

/// The fragments of a stream, and behind them how it ended.
std::vector<std::string> saidBy(const std::vector<std::string_view>& pieces) {
    service::ChatEvents events;
    std::vector<std::string> said;
    for (const std::string_view piece : pieces)
        events.add(piece, said);
    said.push_back("state " + std::to_string(static_cast<int>(events.finish())));
    said.push_back("fault " + events.fault());
    return said;
}

}  // namespace

// A provider's answer, taken as a stream of text, as a transcript and as an error. All texts must
// be UTF-8, and what a client is told one line without the provider's key.
std::string faultIn(std::string_view bytes, std::uint32_t seed) {
    const auto whole = saidBy({bytes});
    for (const std::size_t longest : {1, 7, 1000})
        if (saidBy(cut(bytes, seed, longest)) != whole)
            return "in pieces of at most " + std::to_string(longest) +
                   " bytes it says another thing";
    for (const std::string& fragment : whole)
        if (fragment.empty() || !isValidUtf8(fragment))
            return "a fragment is empty or not UTF-8";
    const std::string body(bytes);
    for (const char* type : {"application/json", "text/plain", ""})
        if (!isValidUtf8(service::transcriptIn(body, type).value_or("")))
            return "a transcript is not UTF-8";

    const service::Provider provider{"openai", "https://api.example/v1", "sk-0", "", ""};
    for (const int status : {200, 302, 400, 401, 402, 404, 413, 429, 500, 503}) {
        const auto text = failureOf(status, body, std::nullopt, provider, "model").text;
        if (text.find('\n') != text.size() - 1 || !isValidUtf8(text) ||
            text.find(provider.apiKey) != std::string::npos)
            return "a failure is not told in one line, or with the key: " + text;
    }
    return {};
}

}  // namespace nulo
