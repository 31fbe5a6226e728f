#include <gtest/gtest.h>

#include "transcription/HttpSession.h"

namespace nulo {
namespace {

// Catches header names compared by case, and a later header shadowing the first.
TEST(HttpResponseHead, findsTheFirstHeaderWhateverItsCase) {
    const HttpResponseHead head{200, {{"content-type", "a"}, {"Content-Type", "b"}, {"X-E", ""}}};
    EXPECT_EQ(head.header("Content-Type"), "a");
    EXPECT_EQ(head.header("x-e"), "");
    EXPECT_EQ(head.header("Content"), std::nullopt);
}

}  // namespace
}  // namespace nulo
