#include "audio/Level.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace nulo {

float rootMeanSquare(std::span<const float> frames) {
    if (frames.empty())
        return 0;
    // Eight sums of their own let the compiler use the vector unit without reordering additions.
    constexpr std::size_t lanes = 8;
    std::array<float, lanes> sums{};
    const std::size_t whole = frames.size() / lanes * lanes;
    for (std::size_t start = 0; start < whole; start += lanes)
        for (std::size_t lane = 0; lane < lanes; ++lane)
            sums[lane] += frames[start + lane] * frames[start + lane];
    float sum = 0;
    for (const float laneSum : sums)
        sum += laneSum;
    for (const float sample : frames.subspan(whole))
        sum += sample * sample;
    return std::sqrt(sum / static_cast<float>(frames.size()));
}

float normalizedLevel(float rms) {
    constexpr float floorDecibels = 60;
    constexpr float rangeDecibels = 40;
    const float decibels = rms > 0 ? 20 * std::log10(rms) + floorDecibels : 0;
    const float level = std::min(decibels / rangeDecibels, 1.0F);
    return level > 0 ? level : 0;
}

}  // namespace nulo
