#include "app/Routes.h"

#include <utility>

namespace nulo {

TranscriptionProvider providerOf(const std::optional<AppConfig>& config) {
    return config && config->transcriptionProvider == rawValue(TranscriptionProvider::mistral)
               ? TranscriptionProvider::mistral
               : TranscriptionProvider::openai;
}

TakeRoute routeOf(const std::optional<AppConfig>& config) {
    TakeRoute route;
    const TranscriptionProvider provider = providerOf(config);
    route.provider = rawValue(provider);
    if (!config) {
        route.mode = rawTranscriptionMode().name;
        return route;
    }
    route.vocabulary = config->dictionaryPrompt();
    route.mode = config->activeModeName();
    if (config->activeMode == rawTranscriptionMode().id) {
        route.kind = TakeRoute::Kind::raw;
        return route;
    }
    if (provider == TranscriptionProvider::openai)
        route.kind = TakeRoute::Kind::combined;
    route.prompt = config->activePrompt();
    route.cleanupModel = config->activeCleanupModel();
    return route;
}

void sendByRoute(TranscriptionService& service, MainQueue& mainQueue, const Lifetime& owner,
                 const std::filesystem::path& file, const TakeRoute& route,
                 std::function<void(const RouteResult&)> onEnd) {
    const auto provider = route.provider == rawValue(TranscriptionProvider::mistral)
                              ? TranscriptionProvider::mistral
                              : TranscriptionProvider::openai;
    if (route.kind == TakeRoute::Kind::combined)
        return service.transcribeAndClean(
            file, provider, route.vocabulary, route.prompt.value_or(""), route.cleanupModel,
            nullptr, [](const std::string&) {}, owner.guard([onEnd](const TextResult& result) {
                onEnd({result, {}});
            }));

    const bool cleansUp = route.kind == TakeRoute::Kind::twoStage && route.prompt;
    auto transcribed =
        owner.guard([&service, &owner, route, cleansUp, onEnd](const TextResult& transcript) {
            if (!transcript || transcript.value().empty() || !cleansUp)
                return onEnd({transcript, {}});
            service.cleanupStreaming(
                transcript.value(), *route.prompt, route.cleanupModel, [](const std::string&) {},
                owner.guard([onEnd, transcript](const TextResult& cleaned) {
                    if (cleaned)
                        onEnd({cleaned, {}});
                    else
                        onEnd({transcript, cleaned.error()});
                }));
        });
    service.transcribe(
        file, provider, route.vocabulary, [&mainQueue, transcribed](const TextResult& result) {
            mainQueue.async([transcribed, result]() mutable { transcribed(result); });
        });
}

}  // namespace nulo
