#include "platform/system/TerminationSignals.h"

#include <fcntl.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <csignal>

namespace nulo {
namespace {

constexpr int terminationSignals[] = {SIGTERM, SIGINT, SIGHUP};

// A handler may do next to nothing: it writes a byte into a pipe that the event loop reads.
int pipeWriteEnd = -1;

void wakeEventLoop(int number) {
    const char byte = 0;
    [[maybe_unused]] const ssize_t written = write(pipeWriteEnd, &byte, 1);
    std::signal(number, SIG_DFL);
}

class PipedSignals final : public TerminationSignals {
  public:
    PipedSignals(int readEnd, std::function<void()> callback)
        : m_readEnd(readEnd), m_notifier(readEnd, QSocketNotifier::Read) {
        QObject::connect(&m_notifier, &QSocketNotifier::activated, [this, callback] {
            m_notifier.setEnabled(false);
            callback();
        });
        for (const int number : terminationSignals)
            std::signal(number, wakeEventLoop);
    }
    ~PipedSignals() override {
        for (const int number : terminationSignals)
            std::signal(number, SIG_DFL);
        close(m_readEnd);
        close(std::exchange(pipeWriteEnd, -1));
    }

  private:
    const int m_readEnd;
    QSocketNotifier m_notifier;
};

}  // namespace

std::unique_ptr<TerminationSignals> onTerminationSignal(std::function<void()> callback) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        return nullptr;
    pipeWriteEnd = ends[1];
    return std::make_unique<PipedSignals>(ends[0], std::move(callback));
}

}  // namespace nulo
