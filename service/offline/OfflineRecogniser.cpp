#include "service/offline/OfflineRecogniser.h"

#include <strings.h>

#include <limits>
#include <span>

#include "service/AudioDecoder.h"
#include "service/Silence.h"
#include "service/offline/MeantWords.h"

namespace nulo::service {
namespace {

/// "en", "en-GB", "EN_us".
bool isEnglish(const std::string& language) {
    return strncasecmp(language.c_str(), "en", 2) == 0 &&
           (language.size() == 2 || language[2] == '-' || language[2] == '_');
}

using Samples = std::span<const std::int16_t>;

/// Takes the next piece off: all of it when it is short, otherwise up to a pause, so that no word
/// is cut in two.
Samples takePiece(Samples& samples) {
    constexpr std::size_t longest = std::size_t{speechRate} * 30;
    constexpr std::size_t shortest = std::size_t{speechRate} * 20;
    constexpr std::size_t pause = std::size_t{speechRate} * 3 / 10;
    std::size_t end = samples.size();
    if (end > longest) {
        const auto loudness = [&](std::size_t at) {
            return static_cast<std::int64_t>(samples[at]) * samples[at];
        };
        std::int64_t sum = 0;
        std::int64_t least = std::numeric_limits<std::int64_t>::max();
        for (std::size_t at = shortest; at < longest; ++at) {
            sum += loudness(at);
            if (at >= shortest + pause)
                sum -= loudness(at - pause);
            if (at + 1 >= shortest + pause && sum < least) {
                least = sum;
                end = at + 1 - pause / 2;
            }
        }
    }
    const Samples piece = samples.first(end);
    samples = samples.subspan(end);
    return piece;
}

/// Models write something even of silence.
bool isSilence(Samples samples) {
    return SilenceGate().isSilentAfter(samples);
}

}  // namespace

OfflineRecogniser::OfflineRecogniser(MakeEngine makeEngine, WorkGate::Limits limits,
                                     std::string language, KeptEngines::Duration keep,
                                     const Clock& clock, IsOutdated isOutdated)
    : m_language(std::move(language)),
      m_gate(limits),
      m_engines(std::move(makeEngine), clock, keep, std::move(isOutdated)) {}

Outcome OfflineRecogniser::prepare() {
    auto engine = m_engines.take();
    if (!engine)
        return engine.error();
    m_engines.putBack(std::move(engine).value());
    return Success{};
}

Result<Transcript, Failure> OfflineRecogniser::recognise(const Take& take,
                                                         const StillWanted& stillWanted) {
    SpeechHints hints{take.language.empty() ? m_language : take.language, take.prompt.value_or("")};
    const auto pass = m_gate.enter(stillWanted);
    if (!stillWanted())
        return clientIsGone();
    if (!pass)
        return Failure{
            503, "The service is busy with other recordings. Try again in a few seconds.\n", 3};
    const auto samples = decodedSpeech(take.audio, std::chrono::minutes(15), stillWanted);
    letDecoderGo();  // the engine needs the memory now
    if (!samples)
        return samples.error();
    if (isSilence(samples.value()))
        return Transcript{};
    auto engine = m_engines.take();
    if (!engine)
        return Failure{500,
                       "The recogniser cannot be started: " + engine.error().description + ".\n"};
    if (engine.value()->knowsEnglishOnly() && !hints.language.empty() &&
        !isEnglish(hints.language)) {
        m_engines.putBack(std::move(engine).value());
        return Failure{501,
                       "The offline engine knows English only, and the language asked for is "
                       "another. For French and other languages: nulo-service models get small; or "
                       "name a provider in nulo-service.json, or ask for English.\n"};
    }
    try {
        Transcript whole;
        for (Samples rest = samples.value(); !rest.empty();) {
            const Samples piece = takePiece(rest);
            if (isSilence(piece))
                continue;
            const Transcript heard = engine.value()->hear(piece, hints, stillWanted);
            if (!stillWanted()) {
                m_engines.putBack(std::move(engine).value());
                return clientIsGone();
            }
            const std::string unmarked = withoutMarks(heard.text);
            const std::string words = withoutEndlessRepetition(unmarked);
            whole.text += (whole.text.empty() || words.empty() ? "" : " ") + words;
            if (whole.language.empty())
                whole.language = heard.language;
            if (hints.language.empty())
                hints.language = heard.language;
            // A model that has lost its way would go on where it was.
            hints.before = words == unmarked ? words : "";
        }
        m_engines.putBack(std::move(engine).value());
        return whole;
    } catch (const std::exception& error) {
        return Failure{500, "The offline engine failed (" + std::string(error.what()) +
                                "). Try again; if it stays so, choose another model.\n"};
    }
}

}  // namespace nulo::service
