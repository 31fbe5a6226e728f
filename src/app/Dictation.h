#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "app/DebugTimer.h"
#include "app/PipelineLog.h"
#include "base/Clock.h"
#include "base/Lifetime.h"
#include "base/MainQueue.h"
#include "base/Print.h"
#include "config/AppConfig.h"
#include "desktop/DictationOverlay.h"
#include "desktop/Notifications.h"
#include "keeping/KeptTakes.h"
#include "pasting/Deliveries.h"
#include "transcription/TranscriptionService.h"

namespace nulo {

/// The way of one take to its text in the focused program, by the route that the settings on disk
/// ask for at its start:
///   raw        active mode "raw-transcription": the transcript, unchanged
///   combined   provider "openai": one request transcribes, cleans up and streams back
///   two-stage  otherwise: the transcript first, then a streamed clean-up of it
/// It shows itself on the panel that its take was shown on, and on no other. Main thread: what the
/// network's thread reports is brought over to main first, in order.
class Dictation {
  public:
    /// Everything referred to outlives the dictation.
    struct Dependencies {
        MainQueue& mainQueue;
        const Clock& clock;
        Print print;
        PipelineLog& log;
        DictationOverlay& overlay;
        Pasteboard& pasteboard;
        PasteKeystroke& pasteKeystroke;
        std::function<std::optional<AppConfig>()> loadConfig;
        /// Called with a failure that the user is to see.
        std::function<void(const Notice&)> onFailure;
        /// Called when a text was delivered and nothing failed on its way.
        std::function<void()> onSuccess;
        /// Shows the notice of a text that did not arrive, with what can be done. May be empty.
        std::function<void(const Notice&, NoticeAction)> offer;
        /// Takes that notice away again. May be empty.
        std::function<void()> withdrawOffer;
        /// Called with each text whose keystroke is on its way, and its mode's name. May be empty.
        std::function<void(const std::string& text, const std::string& mode)> onText;
        /// Keeps a copy of a take that may be understood at another time; tells whether it did. May
        /// be empty.
        std::function<bool(const std::filesystem::path& file, const TakeRoute& route)> keepTake;
    };

    Dictation(const Dependencies& dependencies, TranscriptionService& service,
              Deliveries& deliveries, std::filesystem::path file, DictationOverlay::Panel panel);
    /// Gives the dictation up and deletes its take.
    ~Dictation();
    Dictation(const Dictation&) = delete;
    Dictation& operator=(const Dictation&) = delete;

    /// Call it once. It asks the service and returns; `onEnd` may come inside this call, and may
    /// destroy the dictation.
    void start(std::function<void()> onEnd);

  private:
    void transcribeRaw();
    void transcribeAndClean();
    void transcribeThenClean();

    void rawTranscriptArrived(const TextResult& result);

    void serverTimeArrived(long long serverMilliseconds);
    void combinedTokenArrived(std::string_view token);
    void combinedTextArrived(const TextResult& result);

    void firstStageArrived(const TextResult& result);
    void cleanUp(const std::string& rawText);
    void cleanupTokenArrived(std::string_view token);
    void cleanupArrived(const std::string& rawText, const TextResult& result);

    /// Asks for the plain transcript and hands it to `next` on the main thread.
    void transcribe(void (Dictation::*next)(const TextResult&));
    /// Ends the step that both plain routes begin with, and gives its time.
    long long transcriptArrived(const TextResult& result);
    /// The take is not needed any more, but where its request failed and is to be made again.
    void takeIsAnswered(const TextResult& result);
    /// Ends the stream of cleaned text, on either route.
    void cleanupEnded(const std::string& debugLine);
    /// Puts the text on the clipboard when it is its turn, then calls `delivered`.
    void deliver(const std::string& text, std::function<void()> delivered);
    /// Hides the overlay after the delay, then pastes. In this dictation's turn.
    void finish(double delaySeconds);
    void fail(const Notice& notice);
    /// Tells that the take's request failed, and whether the take is kept.
    void failRequest(const TranscriptionFailure& failure);
    /// Hides the overlay and ends without a text.
    void abandon();
    void abandonEmpty();
    void end();
    void deleteAudioFile();

    /// The overlay; null as soon as it shows another take.
    DictationOverlay* overlay() const;
    void debugStep(const std::string& text);
    void replaceDebugStep(const std::string& text);
    void debugPrint(const std::string& text);
    long long lap(const char* step);
    bool debug() const { return m_timer.has_value(); }

    const Dependencies& m_dependencies;
    TranscriptionService& m_service;
    Deliveries& m_deliveries;
    const std::filesystem::path m_file;
    const DictationOverlay::Panel m_panel;
    const std::optional<AppConfig> m_config;
    const TranscriptionProvider m_provider;
    std::function<void()> m_onEnd;
    std::optional<DebugTimer> m_timer;  // in debug mode only
    std::optional<std::string> m_dictPrompt;
    std::string m_text;               // the one that was put on the clipboard
    bool m_closesLogSession = false;  // the two-stage route leaves the log session open
    bool m_failed = false;
    bool m_audioFileDeleted = false;
    bool m_takeIsKept = false;
    int m_tokenCount = 0;
    bool m_sawFirstToken = false;
    Clock::Instant m_cleanupStart;
    Lifetime m_lifetime;
};

}  // namespace nulo
