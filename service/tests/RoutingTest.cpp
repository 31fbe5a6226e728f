#include "service/gateway/Routing.h"

#include <gtest/gtest.h>

namespace nulo::service {
namespace {

const Provider openai{"openai", "https://o", "k", "", ""};
const Provider mistral{"mistral", "https://m", "k", "", ""};
const Provider local{"local", "http://127.0.0.1", "", "whisper", "small"};

/// "provider/model" of a route.
std::string said(const Route& route) {
    EXPECT_FALSE(route.reason.empty());
    return route.provider ? route.provider->name + "/" + route.model : "offline";
}
GatewayConfig with(std::vector<Provider> providers) {
    GatewayConfig config;
    config.providers = std::move(providers);
    return config;
}

// A recording must never reach a vendor that was not named while the named one is there.
TEST(Routing, asksTheProviderThatIsNamed) {
    const GatewayConfig all = with({openai, mistral, local});
    EXPECT_EQ(said(transcriptionRoute(all, "openai", "")), "openai/gpt-4o-mini-transcribe");
    EXPECT_EQ(said(transcriptionRoute(all, "openai", "whisper-1")), "openai/whisper-1");
    EXPECT_EQ(said(transcriptionRoute(all, "mistral", "")), "mistral/voxtral-mini-latest");
    EXPECT_EQ(said(transcriptionRoute(all, "local", "x")), "local/whisper");
    EXPECT_EQ(said(chatRoute(all, "gpt-5.4-mini")), "openai/gpt-5.4-mini");
    EXPECT_EQ(said(chatRoute(all, "mistral-small-latest")), "mistral/mistral-small-latest");
    EXPECT_EQ(said(chatRoute(all, "small")), "local/small");
    EXPECT_EQ(said(chatRoute(all, "another")), "local/small");
}

TEST(Routing, letsOthersStandInAndTheOfflineEngineLast) {
    const GatewayConfig localToo = with({mistral, local});
    EXPECT_EQ(said(transcriptionRoute(localToo, "openai", "whisper-1")), "local/whisper");
    EXPECT_EQ(said(chatRoute(localToo, "gpt-5.4-mini")), "local/small");
    Provider chatOnly = local;
    chatOnly.transcriptionModel.clear();
    EXPECT_EQ(said(transcriptionRoute(with({mistral, chatOnly}), "openai", "gpt-4o-transcribe")),
              "mistral/voxtral-mini-latest");
    EXPECT_EQ(said(transcriptionRoute(with({chatOnly}), "openai", "")), "offline");
    EXPECT_EQ(said(chatRoute(with({openai}), "mistral-small-latest")), "openai/gpt-5.4-mini");
    EXPECT_EQ(said(chatRoute(with({openai}), "unheard-of")), "offline");
    EXPECT_EQ(said(transcriptionRoute(with({}), "openai", "")), "offline");
    EXPECT_EQ(said(transcriptionRoute(with({openai}), "", "")), "openai/gpt-4o-mini-transcribe");
    EXPECT_EQ(said(chatRoute(with({}), "gpt-5.4-mini")), "offline");
}

TEST(Routing, usesTheModelOfTheConfiguration) {
    Provider chosen = openai;
    chosen.transcriptionModel = "whisper-1";
    chosen.chatModel = "gpt-large";
    EXPECT_EQ(said(transcriptionRoute(with({chosen}), "openai", "gpt-4o-mini-transcribe")),
              "openai/whisper-1");
    EXPECT_EQ(said(chatRoute(with({chosen}), "gpt-5.4-mini")), "openai/gpt-large");
    EXPECT_EQ(chatModelFor("openai"), "gpt-5.4-mini");
    for (const char* other : {"mistral", "", "OpenAI", "anything"})
        EXPECT_EQ(chatModelFor(other), "mistral-small-latest") << other;
    EXPECT_EQ(chatModelFor("gpt-large"), "gpt-large");
}

}  // namespace
}  // namespace nulo::service
