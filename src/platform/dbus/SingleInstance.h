#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/Print.h"
#include "base/Result.h"
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

/// Calls a method of the running one and waits for its answer, which comes when it is done; `back`
/// is the argument, where there is one. The error says why it was not done, or that none runs.
Outcome askRunningNulo(const std::string& method, std::optional<unsigned> back);

}  // namespace nulo
