#include "service/gateway/Routing.h"

#include <gtest/gtest.h>

namespace nulo::service {
namespace {

const Provider openai{"openai", "https://o", "k", "", ""};
const Provider mistral{"mistral", "https://m", "k", "", ""};
const Provider local{"local", "http://127.0.0.1", "", "whisper", "small"};
const Provider chatOnly{"local", "http://127.0.0.1", "", "", "small"};
const Provider chosen{"openai", "https://o", "k", "whisper-1", "gpt-large"};

/// Of what is asked for as "provider/model" (a recording) or "model" (a text).
std::string routeOf(const std::vector<Provider>& configured, const std::string& asked) {
    const GatewayConfig config{.providers = configured};
    const std::size_t slash = asked.find('/');
    const Route route =
        slash == std::string::npos
            ? chatRoute(config, asked)
            : transcriptionRoute(config, asked.substr(0, slash), asked.substr(slash + 1));
    EXPECT_FALSE(route.reason.empty());
    return route.provider ? route.provider->name + "/" + route.model : "offline";
}

// A recording must never reach a vendor that was not named while the named one is there.
TEST(Routing, asksWhoIsMeantAndLetsOthersStandIn) {
    struct Case {
        std::vector<Provider> configured;
        const char* asked;
        const char* route;
    };
    const Case cases[] = {
        {{openai, mistral, local}, "openai/", "openai/gpt-4o-mini-transcribe"},
        {{openai, mistral, local}, "openai/whisper-1", "openai/whisper-1"},
        {{openai, mistral, local}, "mistral/", "mistral/voxtral-mini-latest"},
        {{openai, mistral, local}, "local/x", "local/whisper"},
        {{mistral, local}, "openai/whisper-1", "local/whisper"},
        {{mistral, chatOnly}, "openai/gpt-4o-transcribe", "mistral/voxtral-mini-latest"},
        {{openai}, "/", "openai/gpt-4o-mini-transcribe"},
        {{chosen}, "openai/gpt-4o-mini-transcribe", "openai/whisper-1"},
        {{chatOnly}, "openai/", "offline"},
        {{openai, mistral, local}, "gpt-5.4-mini", "openai/gpt-5.4-mini"},
        {{openai, mistral, local}, "mistral-small-latest", "mistral/mistral-small-latest"},
        {{openai, mistral, local}, "small", "local/small"},
        {{openai, mistral, local}, "another", "local/small"},
        {{mistral, local}, "gpt-5.4-mini", "local/small"},
        {{openai}, "mistral-small-latest", "openai/gpt-5.4-mini"},
        {{chosen}, "gpt-5.4-mini", "openai/gpt-large"},
        {{openai}, "unheard-of", "offline"},
        {{}, "gpt-5.4-mini", "offline"},
    };
    for (const auto& [configured, asked, route] : cases)
        EXPECT_EQ(routeOf(configured, asked), route) << asked;
    EXPECT_EQ(chatModelFor("openai"), "gpt-5.4-mini");
    for (const char* other : {"mistral", "", "OpenAI", "anything"})
        EXPECT_EQ(chatModelFor(other), "mistral-small-latest") << other;
    EXPECT_EQ(chatModelFor("gpt-large"), "gpt-large");
}

}  // namespace
}  // namespace nulo::service
