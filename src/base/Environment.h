#pragma once

#include <cstdlib>
#include <string>

namespace nulo {

/// A variable of the environment as it is now; empty when it is missing. Any thread, as long as no
/// thread changes the environment.
inline std::string environmentVariable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

}  // namespace nulo
