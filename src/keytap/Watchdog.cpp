#include "keytap/Watchdog.h"

#include <signal.h>
#include <sys/wait.h>
#include <systemd/sd-daemon.h>

#include <chrono>
#include <optional>

namespace nulo::keytap {
namespace {

using SteadyClock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto interval = 500ms;
// Between looks at a turn that was not finished at the last one, and how many of them are enough.
constexpr auto shortInterval = 50ms;
constexpr int mostLooks = 10;
constexpr auto longestTurn = 5s;

/// Waits for a signal; -1 when none came in that time.
int wait(const sigset_t& signals, std::chrono::nanoseconds time) {
    const timespec timeout{.tv_nsec = time.count()};
    return sigtimedwait(&signals, nullptr, &timeout);
}

/// Tells a service that hangs from one that the machine does not let run: where this process is not
/// woken in time itself, a look counts for nothing.
class TurnWatch {
  public:
    std::chrono::nanoseconds untilNextLook() const { return m_turn ? shortInterval : interval; }
    /// Whether the service hangs.
    bool look(const Pulse& pulse, SteadyClock::time_point now) {
        const bool isInTime = now - m_lastLook < untilNextLook() + shortInterval;
        const std::uint32_t turn = pulse.turn;
        m_lastLook = now;
        if (m_turn != turn) {
            m_turn.reset();
            if (turn % 2 == 1)
                m_turn = turn;
            m_begin = now;
            m_looks = 0;
            return false;
        }
        m_looks += isInTime;
        return pulse.isHolding && (m_looks >= mostLooks || now - m_begin > longestTurn);
    }

  private:
    std::optional<std::uint32_t> m_turn;  // that was not finished
    SteadyClock::time_point m_begin, m_lastLook = SteadyClock::now();
    int m_looks = 0;
};

}  // namespace

int keepWatch(pid_t worker, const Pulse& pulse) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGCHLD);
    sigaddset(&signals, SIGTERM);
    TurnWatch watch;
    bool isAskedToEnd = false;
    while (true) {
        const int signal = wait(signals, watch.untilNextLook());
        int status = 0;
        const pid_t changed = waitpid(worker, &status, WNOHANG | WUNTRACED);
        if (changed == worker && !WIFSTOPPED(status))
            return isAskedToEnd || (WIFEXITED(status) && WEXITSTATUS(status) == 0) ? 0 : 1;
        isAskedToEnd = isAskedToEnd || signal == SIGTERM;
        const bool hangs = signal < 0 && watch.look(pulse, SteadyClock::now());
        if (isAskedToEnd || changed == worker || hangs)
            kill(worker, SIGKILL);
        if (signal < 0)
            sd_notify(0, "WATCHDOG=1");
    }
}

}  // namespace nulo::keytap
