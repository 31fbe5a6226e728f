#include "audio/Level.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

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

}  // namespace
}  // namespace nulo
