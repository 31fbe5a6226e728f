#include "service/http/ConnectionThreads.h"

namespace nulo::service {

void ConnectionThreads::enqueue(std::function<void()> work) {
    {
        std::unique_lock lock(m_mutex);
        const bool needsThread = m_idle <= m_work.size();
        if (needsThread && m_threads.size() >= m_most) {
            lock.unlock();
            work();
            return;
        }
        m_work.push_back(std::move(work));
        if (needsThread) {
            ++m_idle;
            m_threads.emplace_back([this] { run(); });
        }
    }
    m_changed.notify_one();
}

void ConnectionThreads::shutdown() {
    {
        const std::scoped_lock lock(m_mutex);
        m_ending = true;
    }
    m_changed.notify_all();
    for (std::thread& thread : m_threads)
        thread.join();
    m_threads.clear();
}

void ConnectionThreads::run() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_ending || !m_work.empty(); });
        if (m_work.empty())
            return;
        const auto work = std::move(m_work.front());
        m_work.pop_front();
        --m_idle;
        lock.unlock();
        work();
        lock.lock();
        ++m_idle;
    }
}

}  // namespace nulo::service
