#include "service/gateway/GatewayRecogniser.h"

#include <array>
#include <nlohmann/json.hpp>

#include "base/Text.h"
#include "base/Uuid.h"
#include "service/Silence.h"
#include "service/gateway/UpstreamFailure.h"

namespace nulo::service {
namespace {

using nlohmann::json;

constexpr auto longestTake = std::chrono::minutes(15);
constexpr std::size_t largestText = 1024 * 1024;

struct Form {
    std::string type;
    std::string before;
    std::string after;
};

/// The form as providers want it, around the bytes of the file.
Form formFor(const Take& take, const std::string& model) {
    const std::string boundary = randomUuid();
    Form form{"multipart/form-data; boundary=" + boundary, "", "\r\n--" + boundary + "--\r\n"};
    const auto field = [&](const char* name, const std::string& value) {
        form.before += "--" + boundary + "\r\nContent-Disposition: form-data; name=\"" + name +
                       "\"\r\n\r\n" + value + "\r\n";
    };
    field("model", model);
    if (!take.responseFormat.empty())
        field("response_format", take.responseFormat);
    if (take.prompt)
        field("prompt", *take.prompt);
    if (!take.language.empty())
        field("language", take.language);
    std::array<char, 16> head{};
    const auto count = take.audio.read(0, head.data(), head.size());
    const std::string name =
        takeName({head.data(), count > 0 ? static_cast<std::size_t>(count) : 0});
    form.before += "--" + boundary +
                   "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"" + name +
                   "\"\r\nContent-Type: application/octet-stream\r\n\r\n";
    return form;
}

}  // namespace

std::string takeName(std::string_view head) {
    if (head.starts_with("RIFF"))
        return "take.wav";
    if (head.starts_with("OggS"))
        return "take.ogg";
    if (head.starts_with("fLaC"))
        return "take.flac";
    if (head.starts_with("\x1A\x45\xDF\xA3"))
        return "take.webm";
    const bool isMp3 = head.size() > 1 && head[0] == '\xFF' && (head[1] & 0xE6) == 0xE2;
    return head.starts_with("ID3") || isMp3 ? "take.mp3" : "take.m4a";
}

std::optional<std::string> transcriptIn(const std::string& body, const std::string& type) {
    const bool isJson =
        type == "application/json" || (type != "text/plain" && body.starts_with('{'));
    if (isJson) {
        const json answer = json::parse(body, nullptr, false);
        if (!answer.is_object() || !answer.contains("text") || !answer["text"].is_string())
            return std::nullopt;
        return answer["text"].get<std::string>();
    }
    const bool isPage = type == "text/html" || trimmed(body).starts_with('<');
    if (isPage || !isValidUtf8(body))
        return std::nullopt;
    return body;
}

Result<Transcript, Failure> GatewayRecogniser::recognise(const Take& take,
                                                         const StillWanted& stillWanted) {
    const Route route = transcriptionRoute(m_config, take.provider, take.model);
    if (!m_config.providers.empty())
        m_calls.logRoute("transcription", route);
    if (!route.provider)
        return m_offline.recognise(take, stillWanted);
    const auto pass = m_calls.enter(stillWanted);
    if (!pass)
        return ProviderCalls::tooBusy();
    const auto silent = isSilent(take.audio, longestTake, stillWanted);
    if (!silent)
        return silent.error();
    if (!stillWanted())
        return clientIsGone();
    if (silent.value()) {
        m_calls.metrics().add("nulo_silent_recordings_total", "");
        return Transcript{};
    }
    return transcribe(route, take, stillWanted);
}

Result<Transcript, Failure> GatewayRecogniser::transcribe(const Route& route, const Take& take,
                                                          const StillWanted& stillWanted) {
    const Metrics::InFlight inFlight(m_calls.metrics(), "nulo_upstream_in_flight");
    Form form = formFor(take, route.model);
    UpstreamRequest request;
    request.contentType = std::move(form.type);
    request.before = std::move(form.before);
    request.middle = &take.audio;
    request.after = std::move(form.after);
    request.silence = m_calls.limits().transcriptionSilence;
    const auto answer =
        m_calls.ask(route, "/audio/transcriptions", std::move(request), stillWanted);
    if (!answer)
        return answer.error();
    const Provider& provider = *route.provider;
    const auto refused = [&](Failure failure) {
        m_calls.countFailure(provider, failure.status);
        return failure;
    };
    const auto body = answer.value()->readAll(largestText, stillWanted);
    if (!body)
        return refused(failureOf(body.error(), provider));
    auto text = transcriptIn(body.value(), answer.value()->contentType());
    if (!text)
        return refused(unusableAnswer(provider, "something that is no transcript"));
    return Transcript{*std::move(text), take.language};
}

}  // namespace nulo::service
