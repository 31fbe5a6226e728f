#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace nulo {

/// The main thread's queue of work: the only way for another thread to reach main.
///
/// async() and asyncAfter() may be called from any thread and never wait. Work runs on the main
/// thread, never inside the call that queued it, first in first out (delayed work by due time,
/// equal times in the order queued). Work that touches an object is guarded by that object's
/// Lifetime.
class MainQueue {
  public:
    using Work = std::function<void()>;
    using Delay = std::chrono::duration<double>;  // seconds

    /// A running repeating timer; destroying it stops it, at once, also from inside its own work.
    class Timer {
      public:
        virtual ~Timer() = default;
    };

    virtual ~MainQueue() = default;
    virtual void async(Work work) = 0;
    virtual void asyncAfter(Delay delay, Work work) = 0;
    /// Main thread only. `work` runs every `interval`, the first time one interval from now.
    [[nodiscard]] virtual std::unique_ptr<Timer> every(Delay interval, Work work) = 0;
};

}  // namespace nulo
