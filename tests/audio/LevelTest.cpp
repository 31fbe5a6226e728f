#include "audio/Level.h"

#include <gmock/gmock.h>

#include <cmath>
#include <numeric>

#include "audio/FrameBlocks.h"

namespace nulo {
namespace {

// A level that is no number, or leaves out what a buffer's length does not divide.
TEST(Level, isLinearInDecibelsOverTheWholeBuffer) {
    EXPECT_EQ(normalizedLevel(0.0005F), 0);
    EXPECT_NEAR(normalizedLevel(0.01F), 0.5F, 1e-6F);
    EXPECT_EQ(normalizedLevel(std::nanf("")), 0);
    for (const std::size_t length : {1U, 7U, 8U, 83U, 1024U}) {
        std::vector<float> frames(length, 0.0F);
        frames.back() = std::sqrt(static_cast<float>(length));
        EXPECT_NEAR(rootMeanSquare(frames), 1, 1e-6F) << length;
    }
}

// Sound servers hand over 8 to 15,600 frames: levels of stretches of any length, or lost frames.
TEST(Level, isTakenOfBlocksOfOneLength) {
    std::vector<float> sound(20000);
    std::iota(sound.begin(), sound.end(), 0.0F);
    std::vector<float> heard;
    std::vector<std::size_t> lengths;
    FrameBlocks blocks([&](std::span<const float> block) {
        heard.insert(heard.end(), block.begin(), block.end());
        lengths.push_back(block.size());
    });
    std::span<const float> rest(sound);
    for (const std::size_t length : {8U, 1015U, 1U, 1024U, 2049U, 15600U, 303U}) {
        blocks.add(rest.first(length));
        rest = rest.subspan(length);
    }
    EXPECT_EQ(lengths, std::vector<std::size_t>(19, 1024));
    blocks.flush();
    EXPECT_EQ(heard, sound);
}

}  // namespace
}  // namespace nulo
