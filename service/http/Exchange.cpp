#include "service/http/Exchange.h"

#include <microhttpd.h>
#include <poll.h>

#include <algorithm>
#include <cstring>

namespace nulo::service {

void Exchange::answer(Answer answer) {
    const std::scoped_lock lock(m_mutex);
    m_filler.clear();
    if (!m_begun) {
        m_begun = m_ended = true;
        m_head = std::move(answer);
    } else if (answer.status == 200) {
        m_ahead += answer.body;
        m_ended = true;
    }
    wake();
}

void Exchange::begin(Answer head) {
    const std::scoped_lock lock(m_mutex);
    if (!m_begun)
        beginLocked(std::move(head));
}

void Exchange::beginLocked(Answer head) {
    m_begun = m_streamed = true;
    m_ahead = std::exchange(head.body, {});
    m_head = std::move(head);
    wake();
}

bool Exchange::write(std::string_view bytes) {
    std::unique_lock lock(m_mutex);
    m_filler.clear();
    m_changed.wait(lock, [this] { return m_ahead.size() < mostAhead || m_closed; });
    m_ahead += bytes;
    wake();
    return !m_closed;
}

void Exchange::end() {
    const std::scoped_lock lock(m_mutex);
    m_filler.clear();
    m_ended = true;
    wake();
}

bool Exchange::isWanted() const {
    const std::scoped_lock lock(m_mutex);  // the socket stays open until close() is called
    pollfd entry{m_socket, POLLRDHUP, 0};
    return !m_closed &&
           (poll(&entry, 1, 0) <= 0 || (entry.revents & (POLLRDHUP | POLLHUP | POLLERR)) == 0);
}

void Exchange::promise(Answer head, std::string filler) {
    const std::scoped_lock lock(m_mutex);
    m_promise.emplace(std::move(head), std::move(filler));
}

void Exchange::tick(Instant now) {
    const std::scoped_lock lock(m_mutex);
    if (now < m_due || m_closed)
        return;
    if (m_promise && !m_begun) {
        m_filler = m_promise->second;
        beginLocked(std::move(m_promise->first));
    }
    if (m_filler.empty())
        return;
    if (m_ahead.empty())
        m_ahead = m_filler;
    m_due = now + m_limits.nextByte;
    wake();
}

void Exchange::abandon() {
    const std::scoped_lock lock(m_mutex);
    if (!m_ended)
        m_begun = m_streamed = true;
    m_filler.clear();
    m_promise.reset();
    m_closed = m_closed || !m_ended;
    wake();
}

void Exchange::suspendUntilAnswered(Instant bodyEnd) {
    const std::scoped_lock lock(m_mutex);
    m_due = bodyEnd + m_limits.firstByte;
    suspend();
}

std::optional<Answer> Exchange::takeHead() {
    const std::scoped_lock lock(m_mutex);
    return std::exchange(m_head, std::nullopt);
}

bool Exchange::isStreamed() const {
    const std::scoped_lock lock(m_mutex);
    return m_streamed;
}

std::ptrdiff_t Exchange::read(char* target, std::size_t room) {
    const std::scoped_lock lock(m_mutex);
    const std::size_t count = std::min(room, m_ahead.size());
    if (count > 0) {
        std::memcpy(target, m_ahead.data(), count);
        m_ahead.erase(0, count);
        m_bytesOut += count;
        m_changed.notify_all();
        return static_cast<std::ptrdiff_t>(count);
    }
    if (m_ended)
        return MHD_CONTENT_READER_END_OF_STREAM;
    if (m_closed)
        return MHD_CONTENT_READER_END_WITH_ERROR;
    suspend();
    return 0;
}

void Exchange::close() {
    const std::scoped_lock lock(m_mutex);
    m_closed = true;
    m_changed.notify_all();
}

std::uint64_t Exchange::bytesOut() const {
    const std::scoped_lock lock(m_mutex);
    return m_bytesOut;
}

void Exchange::suspend() {
    m_suspended = true;
    MHD_suspend_connection(m_connection);
}

void Exchange::wake() {
    if (std::exchange(m_suspended, false))
        MHD_resume_connection(m_connection);
}

}  // namespace nulo::service
