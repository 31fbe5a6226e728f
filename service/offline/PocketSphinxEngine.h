#pragma once

#include <filesystem>

#include "service/offline/SpeechEngine.h"

namespace nulo::service {

/// The folder of the US English model that the distribution installs.
std::filesystem::path installedModelFolder();

/// Takes about 0.3 s and 140 MB. Fails with a line for the user when the folder holds no model.
Result<std::unique_ptr<SpeechEngine>> makePocketSphinxEngine(const std::filesystem::path& folder);

}  // namespace nulo::service
