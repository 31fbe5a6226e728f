#include "service/offline/KeptEngines.h"

#include <malloc.h>

#include <algorithm>
#include <utility>

namespace nulo::service {
namespace {

constexpr auto leastAfterWarmUp = std::chrono::minutes(1);

}  // namespace

KeptEngines::KeptEngines(MakeEngine make, const Clock& clock, Duration keep, IsOutdated isOutdated)
    : m_make(std::move(make)),
      m_clock(clock),
      m_keep(keep),
      m_isOutdated(std::move(isOutdated)),
      m_watcher([this] { watch(); }) {}

KeptEngines::~KeptEngines() {
    {
        const std::scoped_lock lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_all();
    m_watcher.join();
}

KeptEngines::Engines KeptEngines::outdated() {
    const bool isOutdated = m_isOutdated();
    const std::scoped_lock lock(m_mutex);
    return isOutdated ? std::exchange(m_idle, {}) : Engines();
}

void KeptEngines::warmUp() {
    outdated();
    {
        const std::scoped_lock lock(m_mutex);
        if (m_idle.empty())
            m_warmUpWanted = true;
        else
            m_end = std::max(m_end, m_clock.now() + std::max<Duration>(m_keep, leastAfterWarmUp));
    }
    m_changed.notify_all();
}

Result<std::unique_ptr<SpeechEngine>> KeptEngines::take() {
    outdated();
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return !m_idle.empty() || !m_warmingUp; });
        if (!m_idle.empty()) {
            auto engine = std::move(m_idle.back());
            m_idle.pop_back();
            return engine;
        }
        m_warmUpWanted = false;
    }
    return m_make();
}

void KeptEngines::putBack(std::unique_ptr<SpeechEngine> engine) {
    {
        const std::scoped_lock lock(m_mutex);
        m_idle.push_back(std::move(engine));
        m_end = m_clock.now() + m_keep;
    }
    m_changed.notify_all();
}

std::optional<KeptEngines::Duration> KeptEngines::letGoOfUnused() {
    Engines unused;
    {
        const std::scoped_lock lock(m_mutex);
        if (m_idle.empty())
            return std::nullopt;
        if (!isDue())
            return m_end - m_clock.now();
        unused.swap(m_idle);
    }
    unused.clear();
    malloc_trim(0);  // what the library's many small blocks leave behind
    return std::nullopt;
}

void KeptEngines::watch() {
    std::unique_lock lock(m_mutex);
    while (!m_stopping) {
        if (m_warmUpWanted) {
            m_warmUpWanted = false;
            m_warmingUp = true;
            lock.unlock();
            // Whoever takes the next one is told why there is none.
            auto engine = m_make();
            lock.lock();
            m_warmingUp = false;
            if (engine) {
                m_idle.push_back(std::move(engine).value());
                m_end = m_clock.now() + std::max<Duration>(m_keep, leastAfterWarmUp);
            }
            m_changed.notify_all();
        } else if (isDue()) {
            lock.unlock();
            letGoOfUnused();
            lock.lock();
        } else if (m_idle.empty()) {
            m_changed.wait(lock);
        } else {
            m_changed.wait_for(lock, m_end - m_clock.now());
        }
    }
}

}  // namespace nulo::service
