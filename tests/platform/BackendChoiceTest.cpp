#include "platform/session/BackendChoice.h"

#include <gtest/gtest.h>

namespace nulo {
namespace {

using Backend = KeyTapChoice::Backend;

Backend keyTap(const SessionFacts& facts) {
    return chooseKeyTap(facts).backend;
}

TEST(BackendChoice, neverGrabsKeysThroughXWayland) {
    EXPECT_EQ(keyTap({.display = ":0"}), Backend::x11);
    EXPECT_EQ(keyTap({.sessionType = "x11", .display = ":0"}), Backend::x11);
    EXPECT_EQ(keyTap({.sessionType = "wayland", .display = ":0"}), Backend::unavailable);
    EXPECT_EQ(keyTap({.display = ":0", .waylandDisplay = "wayland-0"}), Backend::unavailable);
    EXPECT_EQ(keyTap({}), Backend::unavailable);
}

}  // namespace
}  // namespace nulo
