#include "service/gateway/Routing.h"

#include <gtest/gtest.h>

namespace nulo::service {
namespace {

// A recording must never reach a vendor that was not named while the named one is there.
TEST(Routing, asksWhoIsMeantAndLetsOthersStandIn) {
    const Provider openai{"openai", "https://o", "k", "", ""};
    const Provider mistral{"mistral", "https://m", "k", "", ""};
    const Provider local{"local", "http://127.0.0.1", "", "whisper", "small"};
    const Provider chatOnly{"local", "http://127.0.0.1", "", "", "small"};
    const Provider chosen{"openai", "https://o", "k", "whisper-1", "gpt-large"};
    const std::vector all{openai, mistral, local};
    // Asked for is "provider/model" of a recording, or "model" of a text.
    const std::tuple<std::vector<Provider>, std::string, const char*> cases[] = {
        {all, "openai/", "openai/gpt-4o-mini-transcribe"},
        {all, "openai/whisper-1", "openai/whisper-1"},
        {all, "mistral/", "mistral/voxtral-mini-latest"},
        {all, "local/x", "local/whisper"},
        {{mistral, local}, "openai/whisper-1", "local/whisper"},
        {{mistral, chatOnly}, "openai/gpt-4o-transcribe", "mistral/voxtral-mini-latest"},
        {{openai}, "/", "openai/gpt-4o-mini-transcribe"},
        {{chosen}, "openai/gpt-4o-mini-transcribe", "openai/whisper-1"},
        {{chatOnly}, "openai/", "offline"},
        {all, "gpt-5.4-mini", "openai/gpt-5.4-mini"},
        {all, "mistral-small-latest", "mistral/mistral-small-latest"},
        {all, "another", "local/small"},
        {{mistral, local}, "gpt-5.4-mini", "local/small"},
        {{openai}, "mistral-small-latest", "openai/gpt-5.4-mini"},
        {{chosen}, "gpt-5.4-mini", "openai/gpt-large"},
        {{openai}, "unheard-of", "offline"},
        {{}, "gpt-5.4-mini", "offline"},
    };
    for (const auto& [configured, asked, expected] : cases) {
        const GatewayConfig config{.providers = configured};
        const std::size_t slash = asked.find('/');
        const Route route =
            slash == std::string::npos
                ? chatRoute(config, asked)
                : transcriptionRoute(config, asked.substr(0, slash), asked.substr(slash + 1));
        EXPECT_FALSE(route.reason.empty());
        EXPECT_EQ(route.provider ? route.provider->name + "/" + route.model : "offline", expected)
            << asked;
    }
    for (const auto& [asked, model] : {std::pair{"openai", "gpt-5.4-mini"},
                                       {"mistral", "mistral-small-latest"},
                                       {"OpenAI", "mistral-small-latest"},
                                       {"gpt-large", "gpt-large"}})
        EXPECT_EQ(chatModelFor(asked), model);
}

}  // namespace
}  // namespace nulo::service
