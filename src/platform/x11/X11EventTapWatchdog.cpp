#include "platform/x11/X11EventTapWatchdog.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <utility>

namespace nulo {
namespace {

constexpr long tickNanoseconds = 50'000'000;

}  // namespace

X11EventTapWatchdog::X11EventTapWatchdog()
    : m_timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      m_quit(eventfd(0, EFD_CLOEXEC)),
      m_thread([this] { run(); }) {}

X11EventTapWatchdog::~X11EventTapWatchdog() {
    eventfd_write(m_quit, 1);
    m_thread.join();
    close(m_quit);
    close(m_timer);
}

void X11EventTapWatchdog::watch(std::vector<int> sockets) {
    const std::lock_guard lock(m_mutex);
    m_sockets = std::move(sockets);
    m_stalled = false;
    m_progress = true;
}

void X11EventTapWatchdog::beginWork() {
    const std::lock_guard lock(m_mutex);
    // No tick for so long: the whole process stood still while events waited.
    if (m_timerIsOn && std::chrono::steady_clock::now() - m_lastTick > limit)
        cutLocked(true);
    m_working = true;
    m_progress = true;
    setTimer(true);
}

void X11EventTapWatchdog::endWork(bool keyboardHeld) {
    const std::lock_guard lock(m_mutex);
    m_working = false;
    m_progress = true;
    setTimer(keyboardHeld);
}

void X11EventTapWatchdog::expectDelay(std::chrono::milliseconds delay) {
    const std::lock_guard lock(m_mutex);
    m_progress = false;
    m_lastGood = std::chrono::steady_clock::now() + std::min(delay, longestDelay);
}

bool X11EventTapWatchdog::stalled() {
    const std::lock_guard lock(m_mutex);
    return m_stalled;
}

void X11EventTapWatchdog::cut() {
    const std::lock_guard lock(m_mutex);
    cutLocked(false);
}

void X11EventTapWatchdog::cutLocked(bool stalled) {
    m_stalled = m_stalled || (stalled && !m_sockets.empty());
    for (const int socket : m_sockets)
        shutdown(socket, SHUT_RDWR);
}

void X11EventTapWatchdog::run() {
    pollfd sources[] = {{m_timer, POLLIN, 0}, {m_quit, POLLIN, 0}};
    for (;;) {
        if (poll(sources, 2, -1) <= 0)
            continue;
        if (sources[1].revents)
            return;
        std::uint64_t expirations = 0;
        if (read(m_timer, &expirations, sizeof expirations) > 0)
            tick();
    }
}

void X11EventTapWatchdog::tick() {
    const std::lock_guard lock(m_mutex);
    if (!m_timerIsOn)
        return;
    const Time now = std::chrono::steady_clock::now();
    const bool stoodStill = now - std::exchange(m_lastTick, now) > limit;
    const bool hasNothingToDo = !m_working && !inputIsWaiting();
    if (hasNothingToDo || (std::exchange(m_progress, false) && !stoodStill))
        m_lastGood = std::max(m_lastGood, now);
    else if (now - m_lastGood > limit)
        cutLocked(true);
}

bool X11EventTapWatchdog::inputIsWaiting() const {
    if (m_sockets.empty())
        return false;
    pollfd source{m_sockets.front(), POLLIN, 0};
    return poll(&source, 1, 0) > 0;
}

void X11EventTapWatchdog::setTimer(bool on) {
    if (on == m_timerIsOn)
        return;
    m_timerIsOn = on;
    if (on)
        m_lastTick = m_lastGood = std::chrono::steady_clock::now();
    itimerspec interval{};
    if (on)
        interval.it_interval.tv_nsec = interval.it_value.tv_nsec = tickNanoseconds;
    timerfd_settime(m_timer, 0, &interval, nullptr);
}

}  // namespace nulo
