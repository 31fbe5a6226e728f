#include "platform/system/TerminationSignals.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <utility>

namespace nulo {
namespace {

constexpr int terminationSignals[] = {SIGTERM, SIGINT, SIGHUP};
/// A terminal's Ctrl+Z, for one: a program that is stopped while it holds the keyboard takes the
/// keyboard along.
constexpr int stopSignals[] = {SIGTSTP, SIGTTIN, SIGTTOU};

// A handler may do next to nothing: it writes a byte into a pipe that the event loop reads.
int pipeWriteEnd = -1;

void wakeEventLoop(int number) {
    const char byte = 0;
    [[maybe_unused]] const ssize_t written = write(pipeWriteEnd, &byte, 1);
    std::signal(number, SIG_DFL);
}

}  // namespace

TerminationSignals::TerminationSignals(std::function<void()> callback) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        return;  // the signals then end the process as they do by default
    m_readEnd = ends[0];
    pipeWriteEnd = ends[1];
    m_notifier = std::make_unique<QSocketNotifier>(m_readEnd, QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated,
                     [this, callback = std::move(callback)] {
                         m_notifier->setEnabled(false);
                         callback();
                     });
    for (const int number : terminationSignals)
        std::signal(number, wakeEventLoop);
    for (const int number : stopSignals)
        std::signal(number, SIG_IGN);
}

TerminationSignals::~TerminationSignals() {
    if (!m_notifier)
        return;
    for (const int number : terminationSignals)
        std::signal(number, SIG_DFL);
    for (const int number : stopSignals)
        std::signal(number, SIG_DFL);
    m_notifier.reset();
    close(m_readEnd);
    close(std::exchange(pipeWriteEnd, -1));
}

}  // namespace nulo
