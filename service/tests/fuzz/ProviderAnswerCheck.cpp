#include "service/tests/fuzz/Checks.h"

#include <random>
#include <vector>

#include "base/Text.h"
#include "service/gateway/ChatEvents.h"
#include "service/gateway/GatewayRecogniser.h"
#include "service/gateway/UpstreamFailure.h"

namespace nulo::service {
namespace {

struct StreamOutcome {
    std::vector<std::string> fragments;
    ChatEvents::State state = ChatEvents::State::open;
    std::string fault;

    bool operator==(const StreamOutcome&) const = default;
};

/// Of a stream in pieces of 1 to `longest` bytes.
StreamOutcome outcomeOf(std::string_view bytes, std::uint32_t seed, std::size_t longest) {
    std::minstd_rand random(seed);
    ChatEvents events;
    StreamOutcome outcome;
    while (!bytes.empty()) {
        const std::string_view piece = bytes.substr(0, 1 + random() % longest);
        events.add(piece, outcome.fragments);
        bytes.remove_prefix(piece.size());
    }
    outcome.state = events.finish();
    outcome.fault = events.fault();
    return outcome;
}

bool isOneLine(const std::string& text) {
    return text.find('\n') == text.size() - 1 && isValidUtf8(text);
}

}  // namespace

std::string faultInProviderAnswer(std::string_view bytes, std::uint32_t seed) {
    const StreamOutcome whole = outcomeOf(bytes, seed, bytes.size() + 1);
    for (const std::size_t longest : {1, 7, 1000})
        if (outcomeOf(bytes, seed, longest) != whole)
            return "in pieces of at most " + std::to_string(longest) + " bytes (seed " +
                   std::to_string(seed) + ") the stream gives something else";
    for (const std::string& fragment : whole.fragments)
        if (fragment.empty() || !isValidUtf8(fragment))
            return "a fragment is empty or not UTF-8";
    const std::string body(bytes);
    for (const char* type : {"application/json", "text/plain", ""})
        if (const auto text = transcriptIn(body, type); text && !isValidUtf8(*text))
            return "a transcript is not UTF-8";

    const Provider provider{"openai", "https://api.example/v1", "sk-0", "", ""};
    for (const int status : {200, 302, 400, 401, 402, 404, 413, 429, 500, 503}) {
        const Failure failure = failureOf(status, body, std::nullopt, provider, "model");
        if (!isOneLine(failure.text) || failure.text.find(provider.apiKey) != std::string::npos)
            return "a failure is not told in one line, or with the key: " + failure.text;
    }
    return {};
}

}  // namespace nulo::service
