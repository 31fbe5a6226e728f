#include "service/WorkGate.h"

#include <gtest/gtest.h>

#include <thread>

#include "rig/process/WaitUntil.h"

namespace nulo::service {
namespace {

// One more than may work waits for its turn; one more than may wait is refused and not queued.
TEST(WorkGate, letsWaitOneAndRefusesTheNext) {
    const auto wanted = [] { return true; };
    WorkGate gate({.atOnce = 1, .waiting = 1});
    auto first = gate.enter(wanted);
    ASSERT_TRUE(first);
    EXPECT_FALSE(gate.enter([] { return false; }));  // its client left while it waited
    EXPECT_EQ(gate.waiting(), 0u);
    bool secondEntered = false;
    std::thread second([&] { secondEntered = gate.enter(wanted) != nullptr; });
    ASSERT_TRUE(waitUntil([&] { return gate.waiting() == 1; }));
    EXPECT_FALSE(gate.enter(wanted));
    first.reset();
    second.join();
    EXPECT_TRUE(secondEntered);
    EXPECT_TRUE(gate.enter(wanted));  // every pass was given back
}

}  // namespace
}  // namespace nulo::service
