#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/DictationOverlay.h"
#include "app/PipelineLog.h"
#include "base/Clock.h"
#include "base/Lifetime.h"
#include "base/MainQueue.h"
#include "base/Print.h"
#include "config/AppConfig.h"
#include "pasting/Pasting.h"
#include "transcription/TranscriptionService.h"

namespace nulo {

/// Turns a finished recording into text in the focused program, by the route that the settings on
/// disk ask for at that moment:
///   raw        active mode "raw-transcription": the transcript, unchanged
///   combined   provider "openai": one request transcribes, cleans up and streams back
///   two-stage  otherwise: the transcript first, then a streamed clean-up of it
/// Runs may overlap; each has its own timer and counters. Main thread only: what the network's
/// thread reports is brought over to main first, in order.
class RecordingPipeline {
  public:
    /// All of it outlives the pipeline.
    struct Parts {
        MainQueue& mainQueue;
        const Clock& clock;
        Print print;
        PipelineLog& log;
        DictationOverlay& overlay;
        Pasteboard& pasteboard;
        PasteKeystroke& pasteKeystroke;
        std::function<std::optional<AppConfig>()> loadConfig;
    };

    explicit RecordingPipeline(Parts parts);

    /// Without a service (null) every dictation ends at once with one line.
    void setTranscriptionService(TranscriptionService* service) { m_service = service; }

    /// `file` is the finished take, deleted as soon as its first result is there; nothing for a
    /// take that was not kept, which only hides the overlay. Returns at once.
    void processRecording(const std::optional<std::filesystem::path>& file);

  private:
    struct Run;
    using RunPointer = std::shared_ptr<Run>;

    void transcribeRaw(const RunPointer& run);
    void transcribeAndClean(const RunPointer& run);
    void transcribeThenClean(const RunPointer& run);

    void rawTranscriptArrived(const RunPointer& run, const TextResult& result);

    void serverTimeArrived(const RunPointer& run, long long serverMilliseconds);
    void combinedTokenArrived(const RunPointer& run, std::string_view token);
    void combinedTextArrived(const RunPointer& run, const TextResult& result);

    void firstStageArrived(const RunPointer& run, const TextResult& result);
    void cleanupTokenArrived(const RunPointer& run, std::string_view token);
    void cleanupArrived(const RunPointer& run, const std::string& rawText,
                        const TextResult& result);

    /// Asks for the plain transcript and hands it to `next` on the main thread.
    void transcribe(const RunPointer& run,
                    void (RecordingPipeline::*next)(const RunPointer&, const TextResult&));
    /// Ends a run without a text.
    void abandon(const std::string& line);
    /// Ends a run whose text is on the clipboard: hides the overlay, then pastes.
    void finish(const RunPointer& run, double delaySeconds);
    void debugStep(const Run& run, const std::string& text, DictationOverlay::DebugStep step);
    void debugPrint(const Run& run, const std::string& text);
    long long lap(Run& run, const char* step);

    Parts m_parts;
    TranscriptionService* m_service = nullptr;
    Lifetime m_lifetime;
};

}  // namespace nulo
