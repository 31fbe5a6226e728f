#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace nulo::service {

/// "488 MB" or "25.3 GB", decimal; three digits or four.
std::string amountOf(std::uintmax_t bytes);

/// "7 s", "2 min 05 s" or "1 h 20 min".
std::string shortDuration(std::chrono::seconds duration);

}  // namespace nulo::service
