#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include "base/Print.h"
#include "base/Result.h"

namespace nulo {

/// What other programs may ask of this one. Each is called on the main thread, from its event loop.
struct RemoteActions {
    std::function<void()> startRecording;
    std::function<void()> stopRecording;
    std::function<void()> toggle;
    std::function<void()> showSettings;
};

/// The program's name on the user's D-Bus: org.nulo.Nulo, with the interface of that name at
/// /org/nulo/Nulo. It is there for as long as this object is. Main thread.
class RemoteControl {
  public:
    virtual ~RemoteControl() = default;
    /// Nothing is answered before this: callers wait for the event loop to run.
    virtual void setActions(RemoteActions actions) = 0;
    /// The property State: "idle" or "recording". Announced when it changes.
    virtual void setRecording(bool recording) = 0;
};

enum class Instance {
    only,         // the name is ours, or there is no bus to ask
    alreadyRuns,  // the running one was asked to show its settings
    alreadyRunsButHangs,
};

struct ClaimedInstance {
    Instance instance = Instance::only;
    std::unique_ptr<RemoteControl> remoteControl;  // with Instance::only
};

/// Makes this the user's only Nulo, or hands over to the one that runs. Waits for the running one
/// no longer than two seconds. After QCoreApplication was made.
ClaimedInstance claimInstance(const Print& print);

}  // namespace nulo
