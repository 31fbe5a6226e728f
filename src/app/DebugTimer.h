#pragma once

#include <string>
#include <utility>
#include <vector>

#include "base/Clock.h"

namespace nulo {

/// Lap times of one dictation's steps, in whole milliseconds. One thread at a time.
class DebugTimer {
  public:
    /// Starts at once; `clock` outlives the timer.
    explicit DebugTimer(const Clock& clock)
        : m_clock(clock), m_startTime(clock.now()), m_lastLap(m_startTime) {}

    /// Ends a step and returns its duration: the time since the last lap or forced step.
    long long lap(std::string name);
    /// Records a step whose duration was measured elsewhere.
    void forceStep(std::string name, long long ms);
    /// The time since the start.
    long long elapsedMilliseconds() const { return wholeMilliseconds(m_clock.now() - m_startTime); }
    /// "Upload 312ms | Paste 2ms | Total 2215ms"
    std::string summary() const;

  private:
    const Clock& m_clock;
    Clock::Instant m_startTime;
    Clock::Instant m_lastLap;
    std::vector<std::pair<std::string, long long>> m_steps;
};

}  // namespace nulo
