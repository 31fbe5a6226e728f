#pragma once

#include <chrono>
#include <cstdint>
#include <span>

#include "base/Result.h"
#include "service/Failure.h"
#include "service/Spool.h"
#include "service/StillWanted.h"

namespace nulo::service {

/// Finds the first frame of 30 ms that is louder than -50 dBFS (root mean square; 0 dBFS is a full
/// scale square wave). Below that lies the noise of a room in which nobody speaks.
class SilenceGate {
  public:
    /// Mono at speechRate, in pieces of any size; false once it has been loud.
    bool isSilentAfter(std::span<const std::int16_t> samples);

  private:
    std::int64_t m_squares = 0;
    std::size_t m_count = 0;
    bool m_loud = false;
};

/// Whether nobody speaks in the recording; decodes as far as the first loud frame, or until it is
/// no longer wanted. 415 when it is not audio, 413 when nothing is heard for longer than `longest`.
Result<bool, Failure> isSilent(const Spool& file, std::chrono::seconds longest,
                               const StillWanted& stillWanted);

}  // namespace nulo::service
