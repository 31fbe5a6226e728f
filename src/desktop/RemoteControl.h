#pragma once

#include <functional>

namespace nulo {

/// What other programs may ask of this one. Each is called on the main thread, from its event loop.
struct RemoteActions {
    std::function<void()> startRecording;
    std::function<void()> stopRecording;
    std::function<void()> toggle;
    std::function<void()> showSettings;
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
