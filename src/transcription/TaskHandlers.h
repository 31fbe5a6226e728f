#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "transcription/HttpSession.h"

namespace nulo {

/// The handler of each task in flight. Any thread: requests are registered where they are made, and
/// looked up on the session's thread. The lock is never held while a handler runs.
template <typename Handler>
class TaskHandlers {
  public:
    void add(HttpTaskId task, std::shared_ptr<Handler> handler) {
        const std::lock_guard lock(m_mutex);
        m_handlers.insert_or_assign(task, std::move(handler));
    }
    /// Null when the task has none.
    std::shared_ptr<Handler> find(HttpTaskId task) const {
        const std::lock_guard lock(m_mutex);
        const auto found = m_handlers.find(task);
        return found == m_handlers.end() ? nullptr : found->second;
    }
    void remove(HttpTaskId task) {
        // Declared before the lock, so that a handler that dies here does so with the lock
        // released.
        typename Map::node_type removed;
        const std::lock_guard lock(m_mutex);
        removed = m_handlers.extract(task);
    }

  private:
    using Map = std::map<HttpTaskId, std::shared_ptr<Handler>>;

    mutable std::mutex m_mutex;
    Map m_handlers;
};

}  // namespace nulo
