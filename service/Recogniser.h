#pragma once

#include <optional>
#include <string>

#include "base/Result.h"
#include "service/Failure.h"
#include "service/Spool.h"
#include "service/StillWanted.h"
#include "service/Transcript.h"

namespace nulo::service {

/// A recording as it was uploaded, with what the client said about it.
struct Take {
    Spool audio;           // the file's bytes
    std::string provider;  // empty when not given, as the next three
    std::string model;
    std::string responseFormat;
    std::string language;
    std::optional<std::string> prompt;  // vocabulary hint
};

/// Turns a take into text. Called on many threads at once; each call blocks until its text is
/// there.
class Recogniser {
  public:
    virtual ~Recogniser() = default;
    virtual Result<Transcript, Failure> recognise(const Take& take,
                                                  const StillWanted& stillWanted) = 0;
};

}  // namespace nulo::service
