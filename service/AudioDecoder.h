#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>
#include <vector>

#include "base/Result.h"
#include "service/Failure.h"

namespace nulo::service {

/// Decodes a whole audio file (WAV, MPEG-4, Ogg, FLAC, MP3, WebM…) to mono at speechRate. Any
/// thread. 415 when it is not audio, 413 when it lasts longer than `longest`.
Result<std::vector<std::int16_t>, Failure> decodedSpeech(std::string_view file,
                                                         std::chrono::seconds longest);

}  // namespace nulo::service
