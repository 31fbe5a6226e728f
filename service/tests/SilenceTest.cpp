#include "service/Silence.h"

#include <gtest/gtest.h>

#include <vector>

namespace nulo::service {
namespace {

/// Whether a square wave of that height, over that many samples amid digital silence, is heard.
bool isHeard(std::int16_t height, std::size_t start, std::size_t length) {
    std::vector<std::int16_t> samples(16000);
    for (std::size_t i = start; i < start + length; ++i)
        samples[i] = i % 2 ? height : static_cast<std::int16_t>(-height);
    SilenceGate gate;
    bool silent = true;
    for (std::size_t at = 0; at < samples.size(); at += 1000)  // cut across the frames
        silent = gate.isSilentAfter({samples.data() + at, 1000});
    return !silent;
}

// -50 dBFS is a height of 103.6; one frame is 480 samples.
TEST(SilenceGate, hearsOneFrameAboveTheThreshold) {
    EXPECT_TRUE(isHeard(105, 4800, 480));
    EXPECT_FALSE(isHeard(102, 0, 16000));
    EXPECT_FALSE(isHeard(105, 4800, 400));     // no whole frame is that loud
    EXPECT_TRUE(isHeard(-32768, 15360, 480));  // no overflow
}

}  // namespace
}  // namespace nulo::service
