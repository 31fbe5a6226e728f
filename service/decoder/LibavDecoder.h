#pragma once

#include <optional>

#include "service/AudioDecoder.h"

namespace nulo::service {

/// Decodes the audio file that is open there, piece by piece, until `take` wants no more. Any
/// thread. 415 when it is not audio.
std::optional<Failure> decodeFile(int descriptor, const TakeSamples& take);

}  // namespace nulo::service
