#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "base/Clock.h"
#include "service/offline/SpeechEngine.h"

namespace nulo::service {

/// Engines between two takes: loaded ahead of the first one, kept for the next, and let go, with
/// the memory that their model takes, when none has come for a while. Any thread.
class KeptEngines {
  public:
    using Duration = Clock::Instant::duration;

    /// Engines are let go when they were not used for `keep`, or when `isOutdated` says, as
    /// somebody needs one, that another kind would be made now. Both are called on any thread.
    KeptEngines(MakeEngine make, const Clock& clock, Duration keep, IsOutdated isOutdated);
    /// Waits for the engine that is being loaded.
    ~KeptEngines();
    KeptEngines(const KeptEngines&) = delete;
    KeptEngines& operator=(const KeptEngines&) = delete;

    /// Has an engine loaded on a thread of its own, unless one is there, and returns at once. It is
    /// kept for a minute at least, however short `keep` is: a take is on its way.
    void warmUp();
    /// One that is idle or is just being loaded, otherwise another.
    Result<std::unique_ptr<SpeechEngine>> take();
    void putBack(std::unique_ptr<SpeechEngine> engine);
    /// Lets those go whose time has come; done by a thread of its own when it has. Returns how long
    /// the others stay, nothing when none are kept.
    std::optional<Duration> letGoOfUnused();

  private:
    using Engines = std::vector<std::unique_ptr<SpeechEngine>>;

    void watch();
    /// Those that are of no use any more, for the caller to destroy without the lock.
    Engines outdated();
    bool isDue() const { return !m_idle.empty() && m_clock.now() >= m_end; }

    const MakeEngine m_make;
    const Clock& m_clock;
    const Duration m_keep;
    const IsOutdated m_isOutdated;
    std::mutex m_mutex;  // guards all below
    std::condition_variable m_changed;
    Engines m_idle;
    Clock::Instant m_end;  // when those are let go
    bool m_warmUpWanted = false;
    bool m_warmingUp = false;
    bool m_stopping = false;
    std::thread m_watcher;
};

}  // namespace nulo::service
