#pragma once

#include <functional>

namespace nulo {

/// While it lives, a library that ends the process by exit(), as Qt does when the X server is gone,
/// does so at once: `cleanUp` is called, on that library's thread, and nothing is destroyed that
/// other threads still use. One at a time.
class AbruptExit {
  public:
    explicit AbruptExit(std::function<void()> cleanUp);
    ~AbruptExit();
    AbruptExit(const AbruptExit&) = delete;
    AbruptExit& operator=(const AbruptExit&) = delete;

    /// Call it once a library is in use that may have registered its own clean-up for the exit, as
    /// TLS libraries do: what is registered last comes first.
    void comeFirst();
};

}  // namespace nulo
