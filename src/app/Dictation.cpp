#include "app/Dictation.h"

#include <algorithm>
#include <limits>
#include <system_error>
#include <utility>

#include "app/FailureTexts.h"
#include "app/Routes.h"
#include "base/Text.h"

namespace nulo {
namespace {

// The overlay goes first, so that its end and the paste are seen apart.
constexpr double pasteAfterHideSeconds = 0.1;
constexpr double rawDelaySeconds = 0;
constexpr double streamedDelaySeconds = 0.4;
constexpr double debugDelaySeconds = 3.0;  // the timings stay readable
constexpr double toBePastedSeconds = 2.0;  // so does what the user has to do

std::string milliseconds(long long ms) {
    return std::to_string(ms) + "ms";
}

std::string characters(const std::string& text) {
    return std::to_string(characterCount(text)) + " chars";
}

std::uintmax_t sizeInKilobytes(const std::filesystem::path& file) {
    std::error_code error;
    const std::uintmax_t bytes = std::filesystem::file_size(file, error);
    return error ? 0 : bytes / 1024;
}

}  // namespace

Dictation::Dictation(const Dependencies& dependencies, TranscriptionService& service,
                     Deliveries& deliveries, std::filesystem::path file,
                     DictationOverlay::Panel panel)
    : m_dependencies(dependencies),
      m_service(service),
      m_deliveries(deliveries),
      m_file(std::move(file)),
      m_panel(panel),
      m_config(dependencies.loadConfig()),
      m_provider(providerOf(m_config)) {
    if (m_config && m_config->debugMode)
        m_timer.emplace(m_dependencies.clock);
}

Dictation::~Dictation() {
    deleteAudioFile();
}

void Dictation::start(std::function<void()> onEnd) {
    m_onEnd = std::move(onEnd);
    m_dependencies.log.startSession(m_file);
    m_dependencies.log.log("processRecording() started");
    if (DictationOverlay* const shown = overlay())
        shown->showTranscribing();
    debugStep("Transcription...");
    if (m_config)
        m_dictPrompt = m_config->dictionaryPrompt();
    else
        fail(configUnreadable());
    const std::string provider(label(m_provider));
    m_dependencies.log.log("Provider: " + provider + ", debug: " + (debug() ? "true" : "false"));
    if (debug())
        debugPrint("Audio file: " + std::to_string(sizeInKilobytes(m_file)) +
                   "KB, provider: " + provider);

    switch (routeOf(m_config).kind) {
        case TakeRoute::Kind::raw:
            return transcribeRaw();
        case TakeRoute::Kind::combined:
            return transcribeAndClean();
        case TakeRoute::Kind::twoStage:
            return transcribeThenClean();
    }
}

void Dictation::transcribeRaw() {
    m_closesLogSession = true;
    m_dependencies.log.log("Raw transcription mode: skipping cleanup");
    transcribe(&Dictation::rawTranscriptArrived);
}

void Dictation::transcribeAndClean() {
    m_closesLogSession = true;
    const std::string cleanupModel = m_config->activeCleanupModel();
    m_dependencies.log.log(
        "Combined mode: sending audio + cleanup_prompt to /api/transcribe (cleanup: " +
        cleanupModel + ")");
    m_service.transcribeAndClean(
        m_file, m_provider, m_dictPrompt, m_config->activePrompt(), cleanupModel,
        m_lifetime.guard([this](long long ms) { serverTimeArrived(ms); }),
        m_lifetime.guard([this](const std::string& token) { combinedTokenArrived(token); }),
        m_lifetime.guard([this](const TextResult& result) { combinedTextArrived(result); }));
}

void Dictation::transcribeThenClean() {
    transcribe(&Dictation::firstStageArrived);
}

void Dictation::transcribe(void (Dictation::*next)(const TextResult&)) {
    auto onMain =
        m_lifetime.guard([this, next](const TextResult& result) { (this->*next)(result); });
    m_service.transcribe(m_file, m_provider, m_dictPrompt,
                         [&queue = m_dependencies.mainQueue, onMain](const TextResult& result) {
                             queue.async([onMain, result]() mutable { onMain(result); });
                         });
}

long long Dictation::transcriptArrived(const TextResult& result) {
    const long long ms = lap("Transcription");
    replaceDebugStep("Transcription " + milliseconds(ms));
    takeIsAnswered(result);
    return ms;
}

void Dictation::takeIsAnswered(const TextResult& result) {
    if (!result && mayPass(result.error()) && m_dependencies.keepTake)
        m_takeIsKept = m_dependencies.keepTake(m_file, routeOf(m_config));
    deleteAudioFile();
}

void Dictation::rawTranscriptArrived(const TextResult& result) {
    transcriptArrived(result);
    if (!result) {
        const std::string description = describe(result.error());
        m_dependencies.log.log("ERROR: " + description);
        m_dependencies.print("Raw transcription failed: " + description);
        failRequest(result.error());
        return abandon();
    }
    const std::string& text = result.value();
    if (text.empty())
        return abandonEmpty();
    deliver(text, [this, text] {
        m_dependencies.log.log("Raw transcription copied: " + characters(text));
        m_dependencies.print("Raw transcription mode — text copied: " + text);
        finish(rawDelaySeconds);
    });
}

void Dictation::serverTimeArrived(long long serverMilliseconds) {
    const long long elapsed = m_timer ? m_timer->elapsedMilliseconds() : 0;
    // A server may send any 64-bit number: the difference must not overflow.
    constexpr long long most = std::numeric_limits<long long>::max();
    const long long upload =
        serverMilliseconds >= elapsed ? 0 : elapsed - std::max(serverMilliseconds, elapsed - most);
    if (m_timer) {
        m_timer->forceStep("Upload", upload);
        m_timer->forceStep("Transcription", serverMilliseconds);
    }
    const std::string server = milliseconds(serverMilliseconds);
    m_dependencies.log.log("Response headers received — Upload: " + milliseconds(upload) +
                           ", Transcription: " + server + " (server-side)");
    if (DictationOverlay* const shown = overlay())
        shown->showStreaming(m_config->activeModeName());
    debugStep("Up " + milliseconds(upload) + " | Trans " + server);
    debugPrint("Upload: " + milliseconds(upload) + ", Transcription: " + server + " (server-side)");
}

void Dictation::combinedTokenArrived(std::string_view token) {
    ++m_tokenCount;
    if (!m_sawFirstToken) {
        m_sawFirstToken = true;
        m_dependencies.log.log("First token received (token #1): \"" + std::string(token) + "\"");
        if (debug()) {
            const std::string ms = milliseconds(lap("TTFT"));
            debugStep("TTFT " + ms);
            debugPrint("Time to first token: " + ms);
        }
    }
    if (DictationOverlay* const shown = overlay())
        shown->appendStreamingText(token);
}

void Dictation::combinedTextArrived(const TextResult& result) {
    m_dependencies.log.log("Stream complete — " + std::to_string(m_tokenCount) +
                           " tokens received");
    takeIsAnswered(result);
    cleanupEnded("Combined cleanup: ");
    if (result) {
        const std::string& text = result.value();
        return deliver(text, [this, text] {
            m_dependencies.log.log("Clipboard: " + characters(text) + " copied");
            m_dependencies.print("Combined mode — cleaned text copied: " + text);
            finish(streamedDelaySeconds);
        });
    }
    const std::string description = describe(result.error());
    m_dependencies.log.log("ERROR: " + description);
    m_dependencies.print("Combined mode failed: " + description);
    failRequest(result.error());
    // The paste then repeats what the clipboard held before.
    m_deliveries.await(m_lifetime.guard([this] { finish(streamedDelaySeconds); }));
}

void Dictation::firstStageArrived(const TextResult& result) {
    const std::string ms = milliseconds(transcriptArrived(result));
    if (!result) {
        const std::string description = describe(result.error());
        m_dependencies.print("Transcription failed: " + description);
        debugPrint("Pipeline failed: " + description);
        failRequest(result.error());
        return abandon();
    }
    const std::string& text = result.value();
    if (text.empty())
        return abandonEmpty();
    m_dependencies.print("Raw transcription: " + text);
    debugPrint("Transcription: " + ms + ", " + characters(text));
    if (!m_config)
        return deliver(text, [this] { finish(rawDelaySeconds); });
    m_cleanupStart = m_dependencies.clock.now();
    if (DictationOverlay* const shown = overlay())
        shown->showStreaming(m_config->activeModeName());
    debugStep("Transcription " + ms);
    debugStep("Cleanup...");
    m_service.cleanupStreaming(
        text, m_config->activePrompt(), m_config->activeCleanupModel(),
        m_lifetime.guard([this](const std::string& token) { cleanupTokenArrived(token); }),
        m_lifetime.guard(
            [this, text](const TextResult& cleaned) { cleanupArrived(text, cleaned); }));
}

void Dictation::cleanupTokenArrived(std::string_view token) {
    if (debug() && !m_sawFirstToken) {
        m_sawFirstToken = true;
        const std::string ms =
            milliseconds(wholeMilliseconds(m_dependencies.clock.now() - m_cleanupStart));
        replaceDebugStep("TTFT " + ms);
        debugPrint("Time to first token: " + ms);
    }
    if (DictationOverlay* const shown = overlay())
        shown->appendStreamingText(token);
}

void Dictation::cleanupArrived(const std::string& rawText, const TextResult& result) {
    cleanupEnded("Cleanup streaming: ");
    const std::string line =
        result ? "Cleaned text copied: " + result.value()
               : "Cleanup failed (" + describe(result.error()) + "), raw text copied.";
    if (!result)
        fail(cleanupFailed(result.error()));
    deliver(result ? result.value() : rawText, [this, line] {
        m_dependencies.print(line);
        finish(streamedDelaySeconds);
    });
}

void Dictation::cleanupEnded(const std::string& debugLine) {
    const std::string ms = milliseconds(lap("Cleanup"));
    if (DictationOverlay* const shown = overlay())
        shown->finishStreaming();
    replaceDebugStep("Cleanup " + ms);
    debugPrint(debugLine + ms);
}

void Dictation::deliver(const std::string& text, std::function<void()> delivered) {
    m_deliveries.await(m_lifetime.guard([this, text, delivered = std::move(delivered)] {
        m_deliveries.copy(text);
        m_text = text;
        delivered();
    }));
}

void Dictation::finish(double delaySeconds) {
    lap("Paste");
    if (debug()) {
        const std::string summary = m_timer->summary();
        debugPrint(summary);
        if (DictationOverlay* const shown = overlay())
            shown->clearDebugSteps();
        debugStep(summary);
        delaySeconds = debugDelaySeconds;
    }
    if (!m_text.empty() && !m_deliveries.arePasted()) {
        if (DictationOverlay* const shown = overlay())
            shown->showToBePasted();
        delaySeconds = std::max(delaySeconds, toBePastedSeconds);
    }
    if (m_closesLogSession)
        m_dependencies.log.endSession();
    m_dependencies.mainQueue.asyncAfter(MainQueue::Delay(delaySeconds), m_lifetime.guard([this] {
        if (DictationOverlay* const shown = overlay())
            shown->hide();
        m_dependencies.mainQueue.asyncAfter(
            MainQueue::Delay(pasteAfterHideSeconds), m_lifetime.guard([this] {
                m_deliveries.paste();
                if (!m_text.empty() && m_dependencies.onText)
                    m_dependencies.onText(m_text, routeOf(m_config).mode);
                if (!m_failed)
                    m_dependencies.onSuccess();
                end();
            }));
    }));
}

void Dictation::fail(const Notice& notice) {
    m_failed = true;
    m_dependencies.onFailure(notice);
}

void Dictation::failRequest(const TranscriptionFailure& failure) {
    fail(m_takeIsKept ? andTakeKept(requestFailed(failure)) : requestFailed(failure));
}

void Dictation::abandon() {
    if (DictationOverlay* const shown = overlay())
        shown->hide();
    end();
}

void Dictation::abandonEmpty() {
    m_dependencies.print("Transcription returned empty text.");
    fail(nothingRecognised());
    abandon();
}

void Dictation::end() {
    const auto onEnd = std::move(m_onEnd);
    onEnd();
}

void Dictation::deleteAudioFile() {
    if (std::exchange(m_audioFileDeleted, true))
        return;  // a later take may have the name by now
    std::error_code ignored;
    std::filesystem::remove(m_file, ignored);
}

DictationOverlay* Dictation::overlay() const {
    DictationOverlay& shown = m_dependencies.overlay;
    return shown.panel() == m_panel ? &shown : nullptr;
}

void Dictation::debugStep(const std::string& text) {
    if (DictationOverlay* const shown = debug() ? overlay() : nullptr)
        shown->showDebugStep(text);
}

void Dictation::replaceDebugStep(const std::string& text) {
    if (DictationOverlay* const shown = debug() ? overlay() : nullptr)
        shown->updateDebugStep(text);
}

void Dictation::debugPrint(const std::string& text) {
    if (debug())
        m_dependencies.print("[DEBUG] " + text);
}

long long Dictation::lap(const char* step) {
    return m_timer ? m_timer->lap(step) : 0;
}

}  // namespace nulo
