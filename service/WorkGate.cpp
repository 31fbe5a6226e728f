#include "service/WorkGate.h"

namespace nulo::service {

WorkGate::Pass WorkGate::enter() {
    const auto release = [](WorkGate* gate) { gate->leave(); };
    std::unique_lock lock(m_mutex);
    if (m_working >= m_limits.atOnce) {
        if (m_waiting >= m_limits.waiting)
            return {nullptr, release};
        ++m_waiting;
        m_left.wait(lock, [this] { return m_working < m_limits.atOnce; });
        --m_waiting;
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
