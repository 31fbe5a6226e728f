#include "service/gateway/RetryPolicy.h"

#include <gtest/gtest.h>

namespace nulo::service {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(RetryPolicy, retriesTwiceOnlyWhatMayPassAndAsLateAsItIsAskedTo) {
    for (const int status : {429, 500, 502, 503, 504, 599}) {
        EXPECT_EQ(retryDelay(0, status, std::nullopt), milliseconds(250)) << status;
        EXPECT_EQ(retryDelay(1, status, std::nullopt), seconds(1)) << status;
        EXPECT_FALSE(retryDelay(2, status, seconds(0))) << status;
    }
    for (const int status : {200, 301, 400, 401, 403, 404, 413, 428, 430, 600})
        EXPECT_FALSE(retryDelay(0, status, seconds(1))) << status;
    EXPECT_EQ(retryDelay(0, 429, seconds(0)), milliseconds(0));
    EXPECT_EQ(retryDelay(1, 503, seconds(3)), seconds(3));
    EXPECT_FALSE(retryDelay(0, 429, milliseconds(3001)));

    const auto now = Clock::WallTime(seconds(784111775));  // Sun, 06 Nov 1994 08:49:35 GMT
    EXPECT_EQ(retryAfter("2", now), seconds(2));
    EXPECT_EQ(retryAfter("99999999999999999999", now), seconds(999999));
    EXPECT_EQ(retryAfter("Sun, 06 Nov 1994 08:49:37 GMT", now), seconds(2));
    EXPECT_EQ(retryAfter("Sun, 06 Nov 1994 08:49:00 GMT", now), seconds(0));
    for (const char* odd : {"", "soon", "-1", "1.5x"})
        EXPECT_FALSE(retryAfter(odd, now)) << odd;

    milliseconds slept(0);  // until nobody waits
    EXPECT_FALSE(sleepWhileWanted(
        seconds(3), [&] { return slept < milliseconds(300); },
        [&](milliseconds duration) { slept += duration; }));
    EXPECT_LE(slept, seconds(1));
}

}  // namespace
}  // namespace nulo::service
