#include <sys/timerfd.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <algorithm>
#include <cerrno>
#include <map>
#include <mutex>
#include <system_error>
#include <utility>

#include "platform/Backends.h"

namespace nulo {
namespace {

using Instant = std::chrono::steady_clock::time_point;
using Duration = std::chrono::steady_clock::duration;

Duration clockDuration(MainQueue::Delay delay) {
    constexpr MainQueue::Delay longest = std::chrono::hours(24 * 365);
    if (!(delay > MainQueue::Delay::zero()))
        return Duration::zero();
    return std::chrono::round<Duration>(std::min(delay, longest));
}

/// All work waits in one list of ours, ordered by due time and then by order queued; work for now
/// is due at the moment it was queued. The kernel timer is set to the first entry's due time under
/// the list's lock, by whichever thread queues, and its readability wakes Qt's event loop: no
/// thread but main ever touches a Qt object.
class QtMainQueue final : public MainQueue {
  public:
    QtMainQueue()
        : m_timer(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)),
          m_notifier(checked(m_timer), QSocketNotifier::Read) {
        QObject::connect(&m_notifier, &QSocketNotifier::activated, &m_notifier, [this] { run(); });
    }

    ~QtMainQueue() override {
        m_notifier.setEnabled(false);
        Entries dropped;  // outlives the lock: what work owns may take any time to destroy
        const std::lock_guard lock(m_mutex);
        dropped.swap(m_entries);
        close(m_timer);
        m_timer = -1;
    }

    void async(Work work) override { asyncAfter(Delay::zero(), std::move(work)); }

    void asyncAfter(Delay delay, Work work) override {
        const std::lock_guard lock(m_mutex);
        const auto due = std::chrono::steady_clock::now() + clockDuration(delay);
        insert(due, std::move(work));
    }

    std::unique_ptr<Timer> every(Delay interval, Work work) override {
        auto timer =
            std::make_unique<RepeatingTimer>(Repetition{clockDuration(interval), std::move(work)});
        schedule(std::chrono::steady_clock::now() + timer->repetition->interval, timer->repetition);
        return timer;
    }

  private:
    struct Repetition {
        Duration interval;
        Work work;
    };
    struct RepeatingTimer final : Timer {
        explicit RepeatingTimer(Repetition what)
            : repetition(std::make_shared<Repetition>(std::move(what))) {}
        std::shared_ptr<Repetition> repetition;
    };
    using Key = std::pair<Instant, unsigned long long>;
    using Entries = std::map<Key, Work>;

    static int checked(int descriptor) {
        if (descriptor < 0)
            throw std::system_error(errno, std::generic_category(), "timerfd_create");
        return descriptor;
    }

    void schedule(Instant due, const std::shared_ptr<Repetition>& repetition) {
        const std::lock_guard lock(m_mutex);
        insert(due, [this, due, weak = std::weak_ptr(repetition)] {
            const auto alive = weak.lock();
            if (!alive)
                return;
            // The timer keeps its beat, but beats that were missed while main was busy are not made
            // up for.
            const auto next = due + alive->interval;
            const auto now = std::chrono::steady_clock::now();
            schedule(next >= now ? next : now + alive->interval, alive);
            alive->work();
        });
    }

    // Called with the lock held.
    void insert(Instant due, Work work) {
        const auto added = m_entries.emplace(Key(due, m_order++), std::move(work)).first;
        if (added == m_entries.begin())
            setTimer();
    }

    // Called with the lock held. An entry that is due makes the timer readable at once.
    void setTimer() {
        if (m_timer < 0)
            return;
        itimerspec setting{};  // all zero: off
        if (!m_entries.empty()) {
            const auto due = m_entries.begin()->first.first.time_since_epoch();
            const auto seconds = std::chrono::floor<std::chrono::seconds>(due);
            setting.it_value.tv_sec = seconds.count();
            setting.it_value.tv_nsec = std::chrono::nanoseconds(due - seconds).count();
        }
        timerfd_settime(m_timer, TFD_TIMER_ABSTIME, &setting, nullptr);
    }

    /// Runs what was due and queued when it began; the rest waits until Qt had its turn. The timer
    /// stays readable meanwhile, so that an event loop inside a piece of work carries on with the
    /// rest of the batch.
    void run() {
        std::unique_lock lock(m_mutex);
        const Key end{std::chrono::steady_clock::now(), m_order};
        while (!m_entries.empty()) {
            const auto first = m_entries.begin();
            if (first->first.first > end.first || first->first.second >= end.second)
                break;
            Work work = std::move(first->second);
            m_entries.erase(first);
            lock.unlock();
            work();
            work = nullptr;  // what it owns may queue work when it goes
            lock.lock();
        }
        setTimer();
    }

    std::mutex m_mutex;
    // Under the lock.
    Entries m_entries;
    unsigned long long m_order = 0;
    int m_timer;
    // Main thread.
    QSocketNotifier m_notifier;
};

}  // namespace

std::unique_ptr<MainQueue> makeQtMainQueue() {
    return std::make_unique<QtMainQueue>();
}

}  // namespace nulo
