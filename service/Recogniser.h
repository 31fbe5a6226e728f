#pragma once

#include <string>

#include "base/Result.h"
#include "service/Failure.h"

namespace nulo::service {

/// A recording as it was uploaded, with what the client said about it.
struct Take {
    std::string audio;     // the file's bytes
    std::string provider;  // empty when not given, as the next two
    std::string model;
    std::string prompt;  // vocabulary hint
};

/// Turns a take into text. Called on many threads at once; each call blocks until its text is
/// there.
class Recogniser {
  public:
    virtual ~Recogniser() = default;
    /// UTF-8; empty when nothing was said.
    virtual Result<std::string, Failure> recognise(const Take& take) = 0;
};

}  // namespace nulo::service
