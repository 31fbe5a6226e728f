#pragma once

#include <chrono>
#include <thread>

namespace nulo {

/// Polls `condition` until it is true; false after the time-out. For waiting on other processes,
/// never for a timer of ours.
template <typename Condition>
bool waitUntil(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

}  // namespace nulo
