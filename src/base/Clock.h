#pragma once

#include <chrono>
#include <string>

namespace nulo {

/// The two clocks the program reads; tests move theirs by hand. Any thread.
class Clock {
  public:
    using Instant = std::chrono::steady_clock::time_point;
    using WallTime = std::chrono::system_clock::time_point;

    virtual ~Clock() = default;
    /// The time to measure durations by; it never goes back.
    virtual Instant now() const = 0;
    /// The time of day; it jumps when the user sets the clock.
    virtual WallTime wallTime() const = 0;
};

/// The machine's own clocks. Lives as long as the process.
const Clock& systemClock();

/// Whole milliseconds in `duration`, truncated toward zero.
long long wholeMilliseconds(std::chrono::steady_clock::duration duration);

/// Local time as yyyy-MM-dd_HH-mm-ss.
std::string fileTimestamp(Clock::WallTime time);

/// Local time as yyyy-MM-dd HH:mm:ss.
std::string readableTime(Clock::WallTime time);

/// Local time as HH:mm:ss.SSS.
std::string logTimestamp(Clock::WallTime time);

}  // namespace nulo
