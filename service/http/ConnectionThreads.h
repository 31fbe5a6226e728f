#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace nulo::service {

/// A thread for each open connection, started when it is needed and kept.
class ConnectionThreads final {
  public:
    explicit ConnectionThreads(std::size_t most) : m_most(most) {}
    ~ConnectionThreads() { shutdown(); }

    /// When all threads are busy, `work` runs at once on the calling thread.
    void enqueue(std::function<void()> work);
    /// Waits for all work.
    void shutdown();

  private:
    void run();

    const std::size_t m_most;
    std::vector<std::thread> m_threads;  // the thread that enqueues
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::function<void()>> m_work;  // all below under m_mutex
    std::size_t m_idle = 0;
    bool m_ending = false;
};

}  // namespace nulo::service
