#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/Result.h"
#include "service/models/MachineMemory.h"
#include "service/models/ModelFolder.h"

namespace nulo::service {

/// Whether this build can use models at all.
bool canUseModels();

/// The installed models that the companion tries one after the other: the one that is named, or all
/// that find room in this machine, the best first. Empty where there are none; the error says that
/// the one that is named is missing.
Result<std::vector<InstalledModel>> modelsToTry(const OfflineSettings& settings,
                                                const ModelFolder& folder,
                                                const MachineMemory& memory);

/// One line for the user: what is understood without a network, with that model or file of a model,
/// or with the engine that needs none; and the command for more.
std::string understoodOffline(const std::optional<std::string>& model,
                              const OfflineSettings& settings);

}  // namespace nulo::service
