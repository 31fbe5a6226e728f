#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "base/Result.h"
#include "service/Failure.h"
#include "service/Spool.h"
#include "service/StillWanted.h"

namespace nulo::service {

/// Samples a second of the audio that is looked through and recognised.
inline constexpr int speechRate = 16000;

/// Takes the next samples, mono at speechRate, none when they are long in coming; false when no
/// more are wanted.
using TakeSamples = std::function<bool(std::span<const std::int16_t>)>;

/// Decodes an audio file (WAV, MPEG-4, Ogg, FLAC, MP3, WebM…) piece by piece, in a process of its
/// own. Any thread. 415 when it is not audio, 413 when it lasts longer than `longest`, 500 without
/// that process.
std::optional<Failure> decodeSpeech(const Spool& file, std::chrono::seconds longest,
                                    const TakeSamples& take);

/// The whole of it; 499 as soon as it is no longer wanted.
Result<std::vector<std::int16_t>, Failure> decodedSpeech(const Spool& file,
                                                         std::chrono::seconds longest,
                                                         const StillWanted& stillWanted);

/// Starts the process that decodes, unless it runs; it is quicker then. It ends when it was not
/// used for a minute.
void prepareDecoder();
/// Ends it as soon as nobody uses it.
void letDecoderGo();

}  // namespace nulo::service
