#pragma once

#include <filesystem>

namespace nulo::service {

/// How many cores this process may run on, each counted once however many threads it runs at a
/// time; at least 1. `system` is the folder of the system's own description, "/sys".
unsigned physicalCores(const std::filesystem::path& system = "/sys");

}  // namespace nulo::service
