#include "audio/Level.h"

#include <gtest/gtest.h>

#include <cmath>

#include <limits>
#include <numeric>
#include <vector>

#include "audio/FrameBlocks.h"

namespace nulo {
namespace {

TEST(Level, isLinearInDecibelsBetweenItsEnds) {
    EXPECT_EQ(normalizedLevel(0.0005F), 0);
    EXPECT_NEAR(normalizedLevel(0.01F), 0.5F, 1e-6F);
    EXPECT_EQ(normalizedLevel(1), 1);
    EXPECT_EQ(normalizedLevel(std::numeric_limits<float>::quiet_NaN()), 0);
}

TEST(Level, countsEverySampleOfABufferOfAnyLength) {
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
    int whole = 0;
    FrameBlocks blocks([&](std::span<const float> block) {
        heard.insert(heard.end(), block.begin(), block.end());
        whole += block.size() == 1024;
    });
    std::span<const float> rest(sound);
    for (const std::size_t length : {8U, 1015U, 1U, 1024U, 2049U, 15600U, 303U}) {
        blocks.add(rest.first(length));
        rest = rest.subspan(length);
    }
    EXPECT_EQ(whole, 19);
    EXPECT_EQ(heard.size(), 19 * 1024u);
    blocks.flush();
    EXPECT_EQ(heard, sound);
}

}  // namespace
}  // namespace nulo
