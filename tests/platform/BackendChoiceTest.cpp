#include "platform/BackendChoice.h"

#include <gtest/gtest.h>

namespace nulo {
namespace {

Backend keyTap(const SessionFacts& facts) {
    return chooseKeyTap(facts).front().backend;
}

TEST(BackendChoice, neverGrabsKeysThroughXWayland) {
    EXPECT_EQ(keyTap({.display = ":0"}), Backend::x11);
    EXPECT_EQ(keyTap({.sessionType = "x11", .display = ":0"}), Backend::x11);
    EXPECT_EQ(keyTap({.sessionType = "wayland", .display = ":0"}), Backend::unavailable);
    EXPECT_EQ(keyTap({.display = ":0", .waylandDisplay = "wayland-0"}), Backend::unavailable);
    EXPECT_EQ(keyTap({}), Backend::unavailable);
}

TEST(BackendChoice, takesTheCardDirectlyOnlyWithoutASoundServer) {
    const auto first = [](bool server, bool card) {
        return chooseMicrophone({.hasSoundServer = server, .hasAlsaCaptureDevice = card})
            .front()
            .backend;
    };
    EXPECT_EQ(first(true, true), Backend::pulse);
    EXPECT_EQ(first(false, true), Backend::alsa);
    EXPECT_EQ(first(false, false), Backend::pulse);
}

}  // namespace
}  // namespace nulo
