#pragma once

#include <span>

namespace nulo {

/// Root mean square of mono float32 samples; 0 for none.
float rootMeanSquare(std::span<const float> frames);

/// A root mean square as a level in 0...1, linear in decibels: 0 up to -60 dBFS, 1 from -20 dBFS.
/// Silence and NaN give 0.
float normalizedLevel(float rms);

}  // namespace nulo
