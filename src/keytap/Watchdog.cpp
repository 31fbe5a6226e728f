#include "keytap/Watchdog.h"

#include <signal.h>
#include <sys/wait.h>
#include <systemd/sd-daemon.h>

#include <optional>

namespace nulo::keytap {
namespace {

constexpr timespec interval{.tv_nsec = 500'000'000};

}  // namespace

int keepWatch(pid_t worker, const Pulse& pulse) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGCHLD);
    sigaddset(&signals, SIGTERM);
    std::optional<std::uint32_t> unfinishedTurn;
    bool isAskedToEnd = false;
    while (true) {
        const int signal = sigtimedwait(&signals, nullptr, &interval);
        int status = 0;
        const pid_t changed = waitpid(worker, &status, WNOHANG | WUNTRACED);
        if (changed == worker && !WIFSTOPPED(status))
            return isAskedToEnd || (WIFEXITED(status) && WEXITSTATUS(status) == 0) ? 0 : 1;
        isAskedToEnd = isAskedToEnd || signal == SIGTERM;
        const std::uint32_t turn = pulse.turn;
        const bool isLate = pulse.isHolding && unfinishedTurn == turn;
        if (isAskedToEnd || changed == worker || (signal < 0 && isLate))
            kill(worker, SIGKILL);
        if (signal < 0) {
            unfinishedTurn.reset();
            if (turn % 2 == 1)
                unfinishedTurn = turn;
            sd_notify(0, "WATCHDOG=1");
        }
    }
}

}  // namespace nulo::keytap
