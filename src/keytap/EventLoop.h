#pragma once

#include <systemd/sd-event.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>

namespace nulo::keytap {

/// systemd's event loop, with callbacks that own what they need. One thread.
class EventLoop {
  public:
    using Callback = std::function<void()>;

    struct End {
        void operator()(sd_event_source* source) const { sd_event_source_disable_unref(source); }
    };
    /// No longer called once it is gone; may go inside its own callback.
    using Source = std::unique_ptr<sd_event_source, End>;

    /// Throws std::system_error, as all of this does, when the system has no memory or descriptors
    /// left.
    EventLoop();

    /// Called while something can be read from the descriptor, or it is broken.
    Source watch(int descriptor, Callback callback);
    /// Called once.
    Source after(std::chrono::milliseconds delay, Callback callback);

    /// Until quit(), or a callback throws, which this throws then. `turn` is odd while callbacks
    /// are called, and another number at each time.
    void run(std::atomic<std::uint32_t>& turn);
    void quit() { m_quit = true; }

    sd_event* get() const { return m_event.get(); }

  private:
    struct Unref {
        void operator()(sd_event* event) const { sd_event_unref(event); }
    };
    struct Call {
        EventLoop& loop;
        Callback callback;
    };
    static void make(Call& call);
    static Source owned(sd_event_source* source, std::unique_ptr<Call> call);

    std::unique_ptr<sd_event, Unref> m_event;
    bool m_quit = false;
    std::exception_ptr m_error;
};

/// Throws std::system_error when a call of systemd's or the kernel's failed with -errno.
int checked(int result, const char* what);

}  // namespace nulo::keytap
