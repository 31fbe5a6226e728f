#pragma once

#include <cstddef>
#include <functional>

#include "base/Result.h"

namespace nulo {

/// What other programs may ask of this one. Each is called on the main thread, from its event loop.
struct RemoteActions {
    /// Tells the asking program, once, what came of it: now or later.
    using Answer = std::function<void(const Outcome&)>;

    std::function<void()> startRecording;
    std::function<void()> stopRecording;
    std::function<void()> toggle;
    std::function<void()> showSettings;
    /// `back` counts the texts from 1, the last one.
    std::function<void(std::size_t back, const Answer&)> pasteLast;
    std::function<void(std::size_t back, const Answer&)> copyLast;
    /// Sends the newest take that is kept, and puts its text on the clipboard.
    std::function<void(const Answer&)> retry;
    /// Forgets the last texts.
    std::function<void()> forget;
};

/// The way in for other programs, such as a shortcut of the desktop's. Main thread.
class RemoteControl {
  public:
    virtual ~RemoteControl() = default;
    /// No call is answered before this; callers wait for the event loop to run.
    virtual void setActions(RemoteActions actions) = 0;
    /// Sets what other programs are told, "idle" or "recording"; a change is announced to them.
    virtual void setRecording(bool recording) = 0;
};

}  // namespace nulo
