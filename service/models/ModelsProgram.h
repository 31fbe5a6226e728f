#pragma once

#include <string>
#include <vector>

namespace nulo::service {

/// "nulo-service models" with what follows it on the command line; SIGINT, SIGTERM and SIGHUP end a
/// fetch so that it can be gone on with. Returns the exit status. Main thread, before any other is
/// started.
int runModels(const std::vector<std::string>& arguments);

}  // namespace nulo::service
