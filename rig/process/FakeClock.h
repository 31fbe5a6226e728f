#pragma once

#include "base/Clock.h"

namespace nulo {

/// Stands still until advanced; both clocks move together.
class FakeClock final : public Clock {
  public:
    Instant now() const override { return m_now; }
    WallTime wallTime() const override { return m_wallTime; }

    void advance(std::chrono::duration<double> by) {
        m_now += std::chrono::round<Instant::duration>(by);
        m_wallTime += std::chrono::round<WallTime::duration>(by);
    }
    void setWallTime(WallTime time) { m_wallTime = time; }

  private:
    Instant m_now{std::chrono::hours(1)};
    WallTime m_wallTime{std::chrono::hours(24 * 365 * 55)};
};

}  // namespace nulo
