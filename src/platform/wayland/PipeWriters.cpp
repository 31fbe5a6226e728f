#include "platform/wayland/PipeWriters.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace nulo {
namespace {

constexpr std::size_t mostWriters = 32;
constexpr auto longestPause = std::chrono::seconds(10);

}  // namespace

PipeWriters::~PipeWriters() {
    for (const Writer& writer : m_writers)
        close(writer.descriptor);
}

void PipeWriters::add(int descriptor, std::shared_ptr<const std::string> text) {
    if (m_writers.size() == mostWriters) {
        close(m_writers.front().descriptor);
        m_writers.pop_front();
    }
    // The reader's own end stays as it is: the flag belongs to the pipe's writing end.
    fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) | O_NONBLOCK);
    m_writers.push_back({descriptor, std::move(text), 0, Clock::now() + longestPause});
}

void PipeWriters::addTo(std::vector<pollfd>& sources) const {
    for (const Writer& writer : m_writers)
        sources.push_back({writer.descriptor, POLLOUT, 0});
}

int PipeWriters::timeout() const {
    if (m_writers.empty())
        return -1;
    const auto next = std::min_element(
        m_writers.begin(), m_writers.end(),
        [](const Writer& left, const Writer& right) { return left.end < right.end; });
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next->end - Clock::now());
    return std::max(0, static_cast<int>(left.count()));
}

void PipeWriters::work() {
    std::erase_if(m_writers, [](Writer& writer) {
        if (!isDone(writer))
            return false;
        close(writer.descriptor);
        return true;
    });
}

bool PipeWriters::isDone(Writer& writer) {
    while (writer.written < writer.text->size()) {
        const ssize_t count = ::write(writer.descriptor, writer.text->data() + writer.written,
                                      writer.text->size() - writer.written);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return errno != EAGAIN || Clock::now() >= writer.end;
        writer.written += static_cast<std::size_t>(count);
        writer.end = Clock::now() + longestPause;
    }
    return true;
}

}  // namespace nulo
