#include "audio/Level.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <limits>
#include <numeric>
#include <vector>

#include "audio/FrameBlocks.h"

namespace nulo {
namespace {

TEST(Level, isLinearInDecibelsBetweenItsEnds) {
    EXPECT_EQ(normalizedLevel(0), 0);
    EXPECT_EQ(normalizedLevel(0.0005F), 0);
    EXPECT_NEAR(normalizedLevel(0.01F), 0.5F, 1e-6F);
    EXPECT_NEAR(normalizedLevel(0.1F), 1, 1e-6F);
    EXPECT_EQ(normalizedLevel(1), 1);
    EXPECT_EQ(normalizedLevel(std::numeric_limits<float>::infinity()), 1);
    EXPECT_EQ(normalizedLevel(std::numeric_limits<float>::quiet_NaN()), 0);
}

TEST(Level, countsEverySampleOfABufferOfAnyLength) {
    EXPECT_EQ(rootMeanSquare({}), 0);
    for (const std::size_t length : {1U, 7U, 8U, 83U, 1023U, 1024U})
        EXPECT_NEAR(rootMeanSquare(std::vector<float>(length, -0.5F)), 0.5F, 1e-6F) << length;
    std::vector<float> frames(25, 0.0F);
    frames.back() = 5;
    EXPECT_NEAR(rootMeanSquare(frames), 1, 1e-6F);
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
    blocks.flush();
    blocks.flush();
    EXPECT_EQ(heard, sound);
    EXPECT_EQ(lengths.size(), 20u);
    EXPECT_EQ(std::ranges::count(lengths, FrameBlocks::length), 19);
}

}  // namespace
}  // namespace nulo
