#pragma once

#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

namespace nulo {

/// Cuts the tap's connections to the X server when the tap's thread leaves key events unanswered,
/// so that a stalled program never leaves the user without a keyboard: the server then drops its
/// grabs. Runs no timer while nothing is worked on and the keyboard is not held.
class X11EventTapWatchdog {
  public:
    static constexpr auto limit = std::chrono::milliseconds(200);
    static constexpr auto longestDelay = std::chrono::milliseconds(5000);

    X11EventTapWatchdog();
    ~X11EventTapWatchdog();
    X11EventTapWatchdog(const X11EventTapWatchdog&) = delete;
    X11EventTapWatchdog& operator=(const X11EventTapWatchdog&) = delete;

    // Tap thread.
    /// Names the sockets to cut; key events come from the first. Name none once they are closed.
    void watch(std::vector<int> sockets);
    /// Call these around the handling of what arrived.
    void beginWork();
    void endWork(bool keyboardHeld);
    /// Lets the work take so much longer, longestDelay at most.
    void expectDelay(std::chrono::milliseconds delay);
    /// Whether watch()ed sockets were cut because of a stall.
    bool stalled();

    /// Cuts the sockets at once, which ends every wait of the tap's thread. Any thread.
    void cut();

  private:
    using Time = std::chrono::steady_clock::time_point;

    void run();
    void tick();
    void setTimer(bool on);
    void cutLocked(bool stalled);
    bool inputIsWaiting() const;

    const int m_timer;
    const int m_quit;
    std::mutex m_mutex;
    std::vector<int> m_sockets;
    bool m_timerIsOn = false;
    bool m_working = false;
    bool m_progress = false;  // since the last tick
    bool m_stalled = false;
    Time m_lastTick;
    Time m_lastGood;  // when nothing was known to be unanswered
    std::thread m_thread;
};

}  // namespace nulo
