#include "keytap/EventLoop.h"

#include <sys/epoll.h>

#include <system_error>
#include <utility>

namespace nulo::keytap {

int checked(int result, const char* what) {
    if (result < 0)
        throw std::system_error(-result, std::generic_category(), what);
    return result;
}

EventLoop::EventLoop() {
    sd_event* event = nullptr;
    checked(sd_event_new(&event), "sd_event_new");
    m_event.reset(event);
}

EventLoop::Source EventLoop::watch(int descriptor, Callback callback) {
    std::unique_ptr<Call> kept(new Call{*this, std::move(callback)});
    sd_event_source* source = nullptr;
    const auto call = [](sd_event_source*, int, std::uint32_t, void* data) {
        make(*static_cast<Call*>(data));
        return 0;
    };
    checked(sd_event_add_io(m_event.get(), &source, descriptor, EPOLLIN, call, kept.get()),
            "sd_event_add_io");
    return owned(source, std::move(kept));
}

EventLoop::Source EventLoop::after(std::chrono::milliseconds delay, Callback callback) {
    std::unique_ptr<Call> kept(new Call{*this, std::move(callback)});
    sd_event_source* source = nullptr;
    const auto call = [](sd_event_source*, std::uint64_t, void* data) {
        make(*static_cast<Call*>(data));
        return 0;
    };
    const std::uint64_t microseconds = std::chrono::microseconds(delay).count();
    checked(sd_event_add_time_relative(m_event.get(), &source, CLOCK_MONOTONIC, microseconds, 0,
                                       call, kept.get()),
            "sd_event_add_time_relative");
    return owned(source, std::move(kept));
}

/// Nothing can be thrown through systemd's code.
void EventLoop::make(Call& call) {
    try {
        call.callback();
    } catch (...) {
        call.loop.m_error = std::current_exception();
    }
}

EventLoop::Source EventLoop::owned(sd_event_source* source, std::unique_ptr<Call> call) {
    sd_event_source_set_destroy_callback(source,
                                         [](void* data) { delete static_cast<Call*>(data); });
    call.release();
    return Source(source);
}

void EventLoop::run(std::atomic<std::uint32_t>& turn) {
    while (!m_quit) {
        int ready = checked(sd_event_prepare(m_event.get()), "sd_event_prepare");
        if (ready == 0)
            ready = checked(sd_event_wait(m_event.get(), UINT64_MAX), "sd_event_wait");
        if (ready == 0)
            continue;
        ++turn;
        const int dispatched = sd_event_dispatch(m_event.get());
        ++turn;
        checked(dispatched, "sd_event_dispatch");
        if (m_error)
            std::rethrow_exception(std::exchange(m_error, nullptr));
    }
}

}  // namespace nulo::keytap
