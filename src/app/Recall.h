#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>

#include "app/PipelineLog.h"
#include "app/RecordingPipeline.h"
#include "app/Routes.h"
#include "base/Clock.h"
#include "base/Lifetime.h"
#include "base/MainQueue.h"
#include "desktop/Notifications.h"
#include "desktop/RemoteControl.h"
#include "desktop/UserDefaults.h"
#include "keeping/KeptTakes.h"
#include "keeping/RecentTexts.h"
#include "keeping/TextHistory.h"
#include "transcription/TranscriptionService.h"

namespace nulo {

/// What was said once and can be had again: the last texts, in memory; on the disk, where the user
/// asked for it, every text ("history" in the user defaults) and the takes that found no service
/// ("keepFailedTakes"). A disk that takes nothing costs a line in the log, and no dictation. Main
/// thread.
class Recall {
  public:
    using Answer = RemoteActions::Answer;

    /// Everything referred to outlives it.
    struct Dependencies {
        MainQueue& mainQueue;
        const Clock& clock;
        PipelineLog& log;
        const UserDefaults& userDefaults;
        Notifications& notifications;
        RecordingPipeline& pipeline;
        /// The one that takes are sent to now; null when there is none.
        std::function<TranscriptionService*()> service;
        /// Where the disk's part is kept; made when something is.
        std::filesystem::path stateFolder;
    };

    /// Drops what has been kept for long enough.
    explicit Recall(Dependencies dependencies);

    void textDelivered(const std::string& text, const std::string& mode);
    /// Whether a copy of the take is kept now.
    bool keepTake(const std::filesystem::path& file, const TakeRoute& route);

    // What other programs may ask for: see RemoteActions.
    void pasteLast(std::size_t back, const Answer& answer);
    void copyLast(std::size_t back, const Answer& answer);
    void retry(const Answer& answer);
    void forget() { m_recent.clear(); }

  private:
    void dropOld();
    void retried(const KeptTakes::Take& take, const RouteResult& result, const Answer& answer);

    const Dependencies m_dependencies;
    RecentTexts m_recent;
    const TextHistory m_history;
    const KeptTakes m_takes;
    bool m_isRetrying = false;
    Lifetime m_lifetime;
};

}  // namespace nulo
