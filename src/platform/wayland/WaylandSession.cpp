#include "platform/wayland/WaylandSession.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>

namespace nulo {

WaylandDesk::WaylandDesk(std::unique_ptr<WaylandConnection> connected)
    : connection(std::move(connected)),
      selections(*connection),
      keyboard(*connection),
      fakeInput(*connection),
      layers(*connection) {}

WaylandDesk::~WaylandDesk() = default;

WaylandSession::WaylandSession(std::string display)
    : m_display(std::move(display)), m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (m_wake < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
    m_thread = std::thread([this] { run(); });
}

WaylandSession::~WaylandSession() {
    m_stopping = true;
    wake();
    m_thread.join();
    close(m_wake);
}

void WaylandSession::post(Work work) {
    {
        const std::lock_guard lock(m_mutex);
        m_work.push_back(std::move(work));
    }
    wake();
}

void WaylandSession::wake() {
    const std::uint64_t one = 1;
    // Can only fail when the thread was woken 2^64 times without noticing.
    [[maybe_unused]] const auto written = write(m_wake, &one, sizeof one);
}

void WaylandSession::run() {
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);  // a program that stops reading the clipboard halfway
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    [[maybe_unused]] const auto early = connect();  // so that the first paste waits for nothing
    while (!m_stopping) {
        runWork();
        waitForMore();
    }
    m_desk.reset();
}

void WaylandSession::runWork() {
    std::vector<Work> work;
    {
        const std::lock_guard lock(m_mutex);
        work.swap(m_work);
    }
    for (const Work& one : work)
        if (!m_stopping)
            one(connect());
}

Result<WaylandDesk*> WaylandSession::connect() {
    if (m_desk && !m_desk->connection->isLost())
        return m_desk.get();
    m_desk.reset();
    auto connection = WaylandConnection::open(m_display);
    if (!connection)
        return connection.error();
    m_desk = std::make_unique<WaylandDesk>(std::move(connection).value());
    return m_desk.get();
}

void WaylandSession::waitForMore() {
    std::vector<pollfd> sources{{m_wake, POLLIN, 0}};
    if (!m_desk) {
        ::poll(sources.data(), 1, -1);
    } else {
        PipeWriters& writers = m_desk->selections.writers();
        writers.addTo(sources);
        if (!m_desk->connection->wait(sources, writers.timeout()))
            m_desk.reset();
        else
            writers.work();
    }
    std::uint64_t count = 0;
    [[maybe_unused]] const auto emptied = read(m_wake, &count, sizeof count);
}

}  // namespace nulo
