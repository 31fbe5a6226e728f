#include "base/Clock.h"

#include <ctime>

namespace nulo {
namespace {

class SystemClock final : public Clock {
  public:
    Instant now() const override { return std::chrono::steady_clock::now(); }
    WallTime wallTime() const override { return std::chrono::system_clock::now(); }
};

std::string localTime(std::chrono::sys_seconds time, const char* format) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm fields{};
    localtime_r(&seconds, &fields);
    char text[64];
    return {text, std::strftime(text, sizeof text, format, &fields)};
}

}  // namespace

const Clock& systemClock() {
    static const SystemClock& clock = *new SystemClock;  // threads read it to the process's end
    return clock;
}

long long wholeMilliseconds(std::chrono::steady_clock::duration duration) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
}

std::string fileTimestamp(Clock::WallTime time) {
    return localTime(std::chrono::floor<std::chrono::seconds>(time), "%Y-%m-%d_%H-%M-%S");
}

std::string readableTime(Clock::WallTime time) {
    return localTime(std::chrono::floor<std::chrono::seconds>(time), "%Y-%m-%d %H:%M:%S");
}

std::string logTimestamp(Clock::WallTime time) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(time - seconds).count();
    std::string fraction = std::to_string(milliseconds);
    fraction.insert(0, 3 - fraction.size(), '0');
    return localTime(seconds, "%H:%M:%S.") + fraction;
}

}  // namespace nulo
