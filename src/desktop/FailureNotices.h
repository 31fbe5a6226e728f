#pragma once

#include <utility>
#include <vector>

#include "base/Clock.h"
#include "desktop/Notifications.h"

namespace nulo {

/// Shows failures without pestering: the same one at most once a minute. Main thread.
class FailureNotices {
  public:
    /// Both outlive it.
    FailureNotices(Notifications& notifications, const Clock& clock)
        : m_notifications(notifications), m_clock(clock) {}

    void report(const Notice& notice);

  private:
    Notifications& m_notifications;
    const Clock& m_clock;
    std::vector<std::pair<Clock::Instant, Notice>> m_shown;  // within the last minute
};

}  // namespace nulo
