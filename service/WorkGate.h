#pragma once

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>

#include "service/StillWanted.h"

namespace nulo::service {

/// Lets a fixed number of jobs run at once and a few more wait for their turn. Any thread.
class WorkGate {
  public:
    struct Limits {
        std::size_t atOnce = 1;
        std::size_t waiting = 0;
    };
    /// The right to work; destroying it lets the next one in. It must not outlive the gate.
    using Pass = std::unique_ptr<WorkGate, void (*)(WorkGate*)>;

    explicit WorkGate(Limits limits) : m_limits(limits) {}
    WorkGate(const WorkGate&) = delete;
    WorkGate& operator=(const WorkGate&) = delete;

    /// Blocks while all are busy. Null when the waiting room is full too, and when the work is no
    /// longer wanted.
    [[nodiscard]] Pass enter(const StillWanted& stillWanted);
    std::size_t waiting() const;

  private:
    void leave();

    const Limits m_limits;
    mutable std::mutex m_mutex;
    std::condition_variable m_left;
    std::size_t m_working = 0;
    std::size_t m_waiting = 0;
};

}  // namespace nulo::service
