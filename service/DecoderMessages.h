#pragma once

#include <cstddef>
#include <cstdint>

namespace nulo::service {

/// How nulo-decoder answers, over a socket of the kind SOCK_SEQPACKET: messages of a status and of
/// at most mostDecoderBytes. What follows samplesFollow is samples, mono at speechRate; the last
/// message has another status, that of a Failure and its text, or wholeFile.
inline constexpr std::int32_t samplesFollow = 0;
inline constexpr std::int32_t wholeFile = 200;
inline constexpr std::size_t mostDecoderBytes = 64 * 1024;

}  // namespace nulo::service
