#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Result.h"
#include "service/Failure.h"
#include "service/StillWanted.h"

namespace nulo::service {

struct ChatMessage {
    std::string role;
    std::string content;
};

struct CleanupRequest {
    std::string text;                   // what was said
    std::vector<ChatMessage> messages;  // what a language model is asked, `text` included
    std::string model;                  // empty when not given
    std::string language = {};          // of the text, such as "fr"; empty when nobody knows it
};

/// Makes readable text of what was said. Called on many threads at once.
class Cleanup {
  public:
    /// Takes the next piece of UTF-8; false when the reader is gone.
    using Fragment = std::function<bool(std::string_view)>;

    /// Hands the pieces on, each as soon as it is there; concatenated they are the text. False when
    /// it broke off before the end. Once, on the thread that asked for it.
    using Stream = std::function<bool(const Fragment&)>;

    virtual ~Cleanup() = default;
    /// Returns when the text begins to arrive, or with the reason why there will be none.
    virtual Result<Stream, Failure> start(CleanupRequest request,
                                          const StillWanted& stillWanted) = 0;
};

}  // namespace nulo::service
