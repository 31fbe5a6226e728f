#pragma once

#include <map>
#include <mutex>
#include <utility>

#include "base/MainQueue.h"
#include "rig/process/FakeClock.h"

namespace nulo {

/// A main queue in virtual time: nothing runs until the test says so. async() may be called from
/// any thread; the rest is the test's thread's.
class FakeMainQueue final : public MainQueue {
  public:
    /// With a clock, advance() moves it along.
    explicit FakeMainQueue(FakeClock* clock = nullptr) : m_clock(clock) {}

    void async(Work work) override { asyncAfter(Delay(0), std::move(work)); }
    void asyncAfter(Delay delay, Work work) override {
        const std::lock_guard lock(m_mutex);
        m_work.emplace(std::pair(m_time + delay, m_order++), std::move(work));
    }
    std::unique_ptr<Timer> every(Delay interval, Work work) override {
        auto timer = std::make_unique<FakeTimer>();
        schedule(interval, std::make_shared<Work>(std::move(work)), timer->alive);
        return timer;
    }

    /// Runs all that is due now, and what that queues for now.
    void runPending() { advance(Delay(0)); }
    /// Moves time on, running what falls due in order.
    void advance(Delay by) {
        const Delay end = m_time + by;
        while (const Work work = firstDueBy(end))
            work();
    }
    std::size_t pendingCount() const {
        const std::lock_guard lock(m_mutex);
        return m_work.size();
    }

  private:
    struct FakeTimer : Timer {
        std::shared_ptr<char> alive = std::make_shared<char>();
    };

    void schedule(Delay interval, std::shared_ptr<Work> work, std::weak_ptr<char> alive) {
        asyncAfter(interval, [this, interval, work, alive] {
            if (alive.expired())
                return;
            schedule(interval, work, alive);
            (*work)();
        });
    }

    /// Time moves on to when it is due, or to the end when there is none.
    Work firstDueBy(Delay end) {
        const std::lock_guard lock(m_mutex);
        const bool isDue = !m_work.empty() && m_work.begin()->first.first <= end;
        const Delay time = std::max(m_time, isDue ? m_work.begin()->first.first : end);
        if (m_clock)
            m_clock->advance(time - m_time);
        m_time = time;
        return isDue ? std::move(m_work.extract(m_work.begin()).mapped()) : nullptr;
    }

    FakeClock* m_clock;
    mutable std::mutex m_mutex;
    std::map<std::pair<Delay, int>, Work> m_work;
    Delay m_time{0};
    int m_order = 0;
};

}  // namespace nulo
