#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace nulo::service {

struct CleanupRequest {
    std::string text;  // what was said
    std::string prompt;
    std::string model;  // empty when not given
};

/// Makes readable text of what was said. Called on many threads at once.
class Cleanup {
  public:
    /// Takes the next piece of UTF-8; false when the reader is gone.
    using Fragment = std::function<bool(std::string_view)>;

    virtual ~Cleanup() = default;
    /// The pieces, concatenated, are the text. False when it broke off before the end.
    virtual bool stream(const CleanupRequest& request, const Fragment& onFragment) = 0;
};

}  // namespace nulo::service
