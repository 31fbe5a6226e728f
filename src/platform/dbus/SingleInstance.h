#pragma once

#include <memory>

#include "base/Print.h"
#include "desktop/RemoteControl.h"

namespace nulo {

enum class Instance {
    only,         // the name is ours, or there is no bus to ask
    alreadyRuns,  // the running one was asked to show its settings
    alreadyRunsButHangs,
};

struct ClaimedInstance {
    Instance instance = Instance::only;
    /// The name org.nulo.Nulo on the user's D-Bus, with the interface of that name at
    /// /org/nulo/Nulo, for as long as this object lives. With Instance::only.
    std::unique_ptr<RemoteControl> remoteControl;
};

/// Makes this the user's only Nulo, or hands over to the one that runs. Waits for the running one
/// no longer than two seconds. After QCoreApplication was made.
ClaimedInstance claimInstance(const Print& print);

}  // namespace nulo
