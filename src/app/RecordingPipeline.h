#pragma once

#include <filesystem>
#include <functional>
#include <list>
#include <optional>
#include <string>

#include "app/Dictation.h"
#include "base/Lifetime.h"
#include "desktop/DictationOverlay.h"
#include "desktop/Notifications.h"
#include "pasting/Deliveries.h"
#include "transcription/TranscriptionService.h"

namespace nulo {

/// Turns finished takes into text in the focused program. Dictations may overlap; each text is
/// delivered when it is there and the one before it has been pasted. Main thread.
class RecordingPipeline {
  public:
    using Dependencies = Dictation::Dependencies;
    using Panel = DictationOverlay::Panel;

    /// Everything that the dependencies refer to outlives the pipeline.
    explicit RecordingPipeline(Dependencies dependencies);

    /// Without a service (null) every dictation ends at once with one line, and `reason` for the
    /// user. The service outlives the requests of the dictations that were begun with it.
    void setTranscriptionService(TranscriptionService* service, Notice reason = {});

    /// `file` is the finished take that was shown on `panel`, deleted as soon as its first result
    /// is there; nothing for a take that was not kept, which only hides that panel. Returns at
    /// once.
    void processRecording(const std::optional<std::filesystem::path>& file, Panel panel);

    /// Pastes a text once more, behind those that are on their way; `begun` is called when it is on
    /// the clipboard.
    void paste(std::string text, std::function<void()> begun);
    /// Puts a text on the clipboard, where it takes no other's place that is yet to be pasted;
    /// `done` is called then.
    void copy(std::string text, std::function<void()> done);

    /// Gives up all dictations and deletes their takes.
    void cancelAll() { m_dictations.clear(); }

  private:
    void told(const Deliveries::Receipt& receipt);
    void offerAgain(const Notice& notice, const std::string& text);

    const Dependencies m_dependencies;
    TranscriptionService* m_service = nullptr;
    Notice m_whyNoService;
    Deliveries m_deliveries;
    std::list<Dictation> m_dictations;
    Lifetime m_lifetime;
};

}  // namespace nulo
