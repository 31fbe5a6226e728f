#include "app/DebugTimer.h"

namespace nulo {

long long DebugTimer::lap(std::string name) {
    const long long ms = wholeMilliseconds(m_clock.now() - m_lastLap);
    forceStep(std::move(name), ms);
    return ms;
}

void DebugTimer::forceStep(std::string name, long long ms) {
    m_steps.emplace_back(std::move(name), ms);
    m_lastLap = m_clock.now();
}

std::string DebugTimer::summary() const {
    std::string text;
    for (const auto& [name, ms] : m_steps)
        text += name + " " + std::to_string(ms) + "ms | ";
    return text + "Total " + std::to_string(elapsedMilliseconds()) + "ms";
}

}  // namespace nulo
