#include "service/WorkGate.h"

#include <chrono>

namespace nulo::service {

WorkGate::Pass WorkGate::enter(const StillWanted& stillWanted) {
    constexpr auto askEvery = std::chrono::milliseconds(200);
    const auto release = [](WorkGate* gate) { gate->leave(); };
    std::unique_lock lock(m_mutex);
    const auto hasRoom = [this] { return m_working < m_limits.atOnce; };
    if (!hasRoom()) {
        if (m_waiting >= m_limits.waiting)
            return {nullptr, release};
        ++m_waiting;
        bool wanted = true;
        while (wanted && !m_left.wait_for(lock, askEvery, hasRoom))
            wanted = stillWanted();
        --m_waiting;
        if (!wanted) {
            m_left.notify_one();  // the turn may have been this one's
            return {nullptr, release};
        }
    }
    ++m_working;
    return {this, release};
}

std::size_t WorkGate::waiting() const {
    const std::scoped_lock lock(m_mutex);
    return m_waiting;
}

void WorkGate::leave() {
    {
        const std::scoped_lock lock(m_mutex);
        --m_working;
    }
    m_left.notify_one();
}

}  // namespace nulo::service
