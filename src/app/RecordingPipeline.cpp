#include "app/RecordingPipeline.h"

#include <algorithm>
#include <limits>

#include "app/DebugTimer.h"
#include "base/Text.h"

namespace nulo {
namespace {

using DebugStep = DictationOverlay::DebugStep;

// The overlay goes first, so that its end and the paste are seen apart.
constexpr double pasteAfterHideSeconds = 0.1;
constexpr double rawDelaySeconds = 0;
constexpr double streamedDelaySeconds = 0.4;
constexpr double debugDelaySeconds = 3.0;  // the timings stay readable

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

void deleteAudioFile(const std::filesystem::path& file) {
    std::error_code ignored;
    std::filesystem::remove(file, ignored);
}

}  // namespace

/// One dictation on its way.
struct RecordingPipeline::Run {
    std::filesystem::path file;
    std::optional<AppConfig> config;
    TranscriptionProvider provider = TranscriptionProvider::openai;
    std::optional<std::string> dictPrompt;
    std::optional<DebugTimer> timer;  // in debug mode only
    bool closesLogSession = false;    // the two-stage route leaves the log session open
    int tokenCount = 0;
    bool sawFirstToken = false;
    Clock::Instant cleanupStart;

    bool debug() const { return timer.has_value(); }
};

RecordingPipeline::RecordingPipeline(Parts parts) : m_parts(std::move(parts)) {}

void RecordingPipeline::processRecording(const std::optional<std::filesystem::path>& file) {
    if (!file) {
        m_parts.overlay.hide();
        return;
    }
    if (!m_service) {
        m_parts.print("No transcription service configured.");
        deleteAudioFile(*file);
        m_parts.overlay.hide();
        return;
    }
    const auto run = std::make_shared<Run>();
    run->file = *file;
    run->config = m_parts.loadConfig();
    const auto& config = run->config;
    if (config && config->transcriptionProvider == "mistral")
        run->provider = TranscriptionProvider::mistral;
    if (config && config->debugMode)
        run->timer.emplace(m_parts.clock);

    m_parts.log.startSession(run->file);
    m_parts.log.log("processRecording() started");
    m_parts.overlay.showTranscribing();
    debugStep(*run, "Transcription...", DebugStep::append);
    if (config)
        run->dictPrompt = config->dictionaryPrompt();
    m_parts.log.log("Provider: " + std::string(label(run->provider)) +
                    ", debug: " + (run->debug() ? "true" : "false"));
    if (run->debug())
        debugPrint(*run, "Audio file: " + std::to_string(sizeInKilobytes(run->file)) +
                             "KB, provider: " + std::string(label(run->provider)));

    if (config && config->activeMode == rawTranscriptionMode().id)
        transcribeRaw(run);
    else if (config && run->provider == TranscriptionProvider::openai)
        transcribeAndClean(run);
    else
        transcribeThenClean(run);
}

void RecordingPipeline::transcribeRaw(const RunPointer& run) {
    run->closesLogSession = true;
    m_parts.log.log("Raw transcription mode: skipping cleanup");
    transcribe(run, &RecordingPipeline::rawTranscriptArrived);
}

void RecordingPipeline::transcribeAndClean(const RunPointer& run) {
    run->closesLogSession = true;
    const std::string cleanupModel = run->config->activeCleanupModel();
    m_parts.log.log("Combined mode: sending audio + cleanup_prompt to /api/transcribe (cleanup: " +
                    cleanupModel + ")");
    m_service->transcribeAndClean(
        run->file, run->provider, run->dictPrompt, run->config->activePrompt(), cleanupModel,
        m_lifetime.guard([this, run](long long ms) { serverTimeArrived(run, ms); }),
        m_lifetime.guard(
            [this, run](const std::string& token) { combinedTokenArrived(run, token); }),
        m_lifetime.guard(
            [this, run](const TextResult& result) { combinedTextArrived(run, result); }));
}

void RecordingPipeline::transcribeThenClean(const RunPointer& run) {
    transcribe(run, &RecordingPipeline::firstStageArrived);
}

void RecordingPipeline::transcribe(const RunPointer& run,
                                   void (RecordingPipeline::*next)(const RunPointer&,
                                                                   const TextResult&)) {
    auto onMain = m_lifetime.guard(
        [this, run, next](const TextResult& result) { (this->*next)(run, result); });
    m_service->transcribe(run->file, run->provider, run->dictPrompt,
                          [&queue = m_parts.mainQueue, onMain](const TextResult& result) {
                              queue.async([onMain, result]() mutable { onMain(result); });
                          });
}

void RecordingPipeline::rawTranscriptArrived(const RunPointer& run, const TextResult& result) {
    const long long ms = lap(*run, "Transcription");
    debugStep(*run, "Transcription " + milliseconds(ms), DebugStep::replace);
    deleteAudioFile(run->file);
    if (!result) {
        const std::string description = describe(result.error());
        m_parts.log.log("ERROR: " + description);
        return abandon("Raw transcription failed: " + description);
    }
    const std::string& text = result.value();
    if (text.empty())
        return abandon("Transcription returned empty text.");
    m_parts.pasteboard.setString(text);
    m_parts.log.log("Raw transcription copied: " + characters(text));
    m_parts.print("Raw transcription mode — text copied: " + text);
    finish(run, rawDelaySeconds);
}

void RecordingPipeline::serverTimeArrived(const RunPointer& run, long long serverMilliseconds) {
    const long long elapsed = run->timer ? run->timer->elapsedMilliseconds() : 0;
    // A server may send any 64-bit number: the difference must not overflow.
    constexpr long long most = std::numeric_limits<long long>::max();
    const long long upload =
        serverMilliseconds >= elapsed ? 0 : elapsed - std::max(serverMilliseconds, elapsed - most);
    if (run->timer) {
        run->timer->forceStep("Upload", upload);
        run->timer->forceStep("Transcription", serverMilliseconds);
    }
    m_parts.log.log("Response headers received — Upload: " + milliseconds(upload) +
                    ", Transcription: " + milliseconds(serverMilliseconds) + " (server-side)");
    m_parts.overlay.showStreaming(run->config->activeModeName());
    debugStep(*run, "Up " + milliseconds(upload) + " | Trans " + milliseconds(serverMilliseconds),
              DebugStep::append);
    debugPrint(*run, "Upload: " + milliseconds(upload) +
                         ", Transcription: " + milliseconds(serverMilliseconds) + " (server-side)");
}

void RecordingPipeline::combinedTokenArrived(const RunPointer& run, std::string_view token) {
    ++run->tokenCount;
    if (!run->sawFirstToken) {
        run->sawFirstToken = true;
        m_parts.log.log("First token received (token #1): \"" + std::string(token) + "\"");
        if (run->debug()) {
            const long long ms = lap(*run, "TTFT");
            debugStep(*run, "TTFT " + milliseconds(ms), DebugStep::append);
            debugPrint(*run, "Time to first token: " + milliseconds(ms));
        }
    }
    m_parts.overlay.appendStreamingText(token);
}

void RecordingPipeline::combinedTextArrived(const RunPointer& run, const TextResult& result) {
    m_parts.log.log("Stream complete — " + std::to_string(run->tokenCount) + " tokens received");
    deleteAudioFile(run->file);
    const long long ms = lap(*run, "Cleanup");
    m_parts.overlay.finishStreaming();
    debugStep(*run, "Cleanup " + milliseconds(ms), DebugStep::replace);
    debugPrint(*run, "Combined cleanup: " + milliseconds(ms));
    if (result) {
        m_parts.pasteboard.setString(result.value());
        m_parts.log.log("Clipboard: " + characters(result.value()) + " copied");
        m_parts.print("Combined mode — cleaned text copied: " + result.value());
    } else {
        const std::string description = describe(result.error());
        m_parts.log.log("ERROR: " + description);
        m_parts.print("Combined mode failed: " + description);
    }
    // Also after a failure: the paste then repeats what the clipboard held before.
    finish(run, streamedDelaySeconds);
}

void RecordingPipeline::firstStageArrived(const RunPointer& run, const TextResult& result) {
    const long long ms = lap(*run, "Transcription");
    const std::string step = "Transcription " + milliseconds(ms);
    debugStep(*run, step, DebugStep::replace);
    deleteAudioFile(run->file);
    if (!result) {
        const std::string description = describe(result.error());
        abandon("Transcription failed: " + description);
        debugPrint(*run, "Pipeline failed: " + description);
        return;
    }
    const std::string& text = result.value();
    if (text.empty())
        return abandon("Transcription returned empty text.");
    m_parts.print("Raw transcription: " + text);
    debugPrint(*run, "Transcription: " + milliseconds(ms) + ", " + characters(text));
    if (!run->config || !m_service) {
        m_parts.pasteboard.setString(text);
        finish(run, rawDelaySeconds);
        return;
    }
    run->cleanupStart = m_parts.clock.now();
    m_parts.overlay.showStreaming(run->config->activeModeName());
    debugStep(*run, step, DebugStep::append);
    debugStep(*run, "Cleanup...", DebugStep::append);
    m_service->cleanupStreaming(text, run->config->activePrompt(),
                                run->config->activeCleanupModel(),
                                m_lifetime.guard([this, run](const std::string& token) {
                                    cleanupTokenArrived(run, token);
                                }),
                                m_lifetime.guard([this, run, text](const TextResult& cleaned) {
                                    cleanupArrived(run, text, cleaned);
                                }));
}

void RecordingPipeline::cleanupTokenArrived(const RunPointer& run, std::string_view token) {
    if (run->debug() && !run->sawFirstToken) {
        run->sawFirstToken = true;
        const long long ms = wholeMilliseconds(m_parts.clock.now() - run->cleanupStart);
        debugStep(*run, "TTFT " + milliseconds(ms), DebugStep::replace);
        debugPrint(*run, "Time to first token: " + milliseconds(ms));
    }
    m_parts.overlay.appendStreamingText(token);
}

void RecordingPipeline::cleanupArrived(const RunPointer& run, const std::string& rawText,
                                       const TextResult& result) {
    const long long ms = lap(*run, "Cleanup");
    m_parts.overlay.finishStreaming();
    debugStep(*run, "Cleanup " + milliseconds(ms), DebugStep::replace);
    debugPrint(*run, "Cleanup streaming: " + milliseconds(ms));
    if (result) {
        m_parts.pasteboard.setString(result.value());
        m_parts.print("Cleaned text copied: " + result.value());
    } else {
        m_parts.pasteboard.setString(rawText);
        m_parts.print("Cleanup failed (" + describe(result.error()) + "), raw text copied.");
    }
    finish(run, streamedDelaySeconds);
}

void RecordingPipeline::abandon(const std::string& line) {
    m_parts.print(line);
    m_parts.overlay.hide();
}

void RecordingPipeline::finish(const RunPointer& run, double delaySeconds) {
    lap(*run, "Paste");
    if (run->debug()) {
        const std::string summary = run->timer->summary();
        debugPrint(*run, summary);
        debugStep(*run, summary, DebugStep::replaceAll);
        delaySeconds = debugDelaySeconds;
    }
    if (run->closesLogSession)
        m_parts.log.endSession();
    m_parts.mainQueue.asyncAfter(MainQueue::Delay(delaySeconds), m_lifetime.guard([this] {
        m_parts.overlay.hide();
        m_parts.mainQueue.asyncAfter(MainQueue::Delay(pasteAfterHideSeconds),
                                     m_lifetime.guard([this] { m_parts.pasteKeystroke.post(); }));
    }));
}

void RecordingPipeline::debugStep(const Run& run, const std::string& text, DebugStep step) {
    if (run.debug())
        m_parts.overlay.showDebugStep(text, step);
}

void RecordingPipeline::debugPrint(const Run& run, const std::string& text) {
    if (run.debug())
        m_parts.print("[DEBUG] " + text);
}

long long RecordingPipeline::lap(Run& run, const char* step) {
    return run.timer ? run.timer->lap(step) : 0;
}

}  // namespace nulo
