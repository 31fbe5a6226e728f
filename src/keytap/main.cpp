// nulo-keytap: watches for one chord on the keyboards, and presses one for its client. Started by
// systemd with its socket; two processes, of which one holds the keyboards and the other lets no
// fault of it keep them.

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <new>

#include "keytap/Service.h"
#include "keytap/Watchdog.h"

namespace nulo::keytap {
namespace {

/// Whoever waits would have systemd start the service again at once, for ever.
void sendAwayWhoWaits(int listener) {
    while (true) {
        const Descriptor client(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
        if (!client)
            return;
    }
}

int work(int listener, Pulse& pulse) {
    try {
        Service(listener, pulse).run();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "The keyboards cannot be served: %s\n", error.what());
        sendAwayWhoWaits(listener);
        return 1;
    }
}

int run() {
    constexpr int listener = SD_LISTEN_FDS_START;
    if (sd_listen_fds(1) != 1 || sd_is_socket(listener, AF_UNIX, SOCK_SEQPACKET, 1) <= 0) {
        std::fputs("nulo-keytap is started by systemd: see nulo-keytap.socket.\n", stderr);
        return 2;
    }
    fcntl(listener, F_SETFL, fcntl(listener, F_GETFL) | O_NONBLOCK);
    void* const shared =
        mmap(nullptr, sizeof(Pulse), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) {
        std::perror("nulo-keytap: mmap");
        return 1;
    }
    auto& pulse = *new (shared) Pulse;

    sigset_t watched, before;
    sigemptyset(&watched);
    sigaddset(&watched, SIGCHLD);
    sigaddset(&watched, SIGTERM);
    sigprocmask(SIG_BLOCK, &watched, &before);
    const pid_t parent = getpid();
    const pid_t worker = fork();
    if (worker < 0) {
        std::perror("nulo-keytap: fork");
        return 1;
    }
    if (worker > 0) {
        close(listener);
        sd_notify(0, "READY=1");
        return keepWatch(worker, pulse);
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        return 1;
    sigprocmask(SIG_SETMASK, &before, nullptr);
    return work(listener, pulse);
}

}  // namespace
}  // namespace nulo::keytap

int main() {
    return nulo::keytap::run();
}
