#include "hotkey/GlobalKeyMonitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <thread>

#include "fakes/FakeEventTap.h"
#include "fakes/FakeMainQueue.h"
#include "fakes/PrintedLines.h"

namespace nulo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto started = "Global key monitor started (Option+Space)";
constexpr auto failed = "Failed to create event tap. Check Accessibility permissions.";
constexpr auto reEnabling = "Event tap was disabled — re-enabling...";
constexpr auto recreating = "Event tap lost — recreating...";

class GlobalKeyMonitorTest : public testing::Test {
  protected:
    GlobalKeyMonitorTest() {
        monitor.emplace(source, queue, printed.print(), [this] { ++settingsOpened; });
        monitor->onRecordStart = [this] { calls += "start "; };
        monitor->onRecordStop = [this] { calls += "stop "; };
        monitor->onAccessibilityChanged = [this](bool granted) {
            calls += granted ? "yes " : "no ";
        };
    }

    FakeEventTapSource source;
    FakeMainQueue queue;
    PrintedLines printed;
    std::string calls;
    int settingsOpened = 0;
    std::optional<GlobalKeyMonitor> monitor;
};

// Callbacks made inside the tap's handler, out of order, or twice.
TEST_F(GlobalKeyMonitorTest, postsTheChordToMainInOrder) {
    monitor->start();
    std::thread tapThread([this] {
        EXPECT_EQ(source.option(true), EventFate::swallow);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(source.space(true), EventFate::swallow);
        source.space(false);
        source.option(false);
        source.option(true);
        source.space(true);
        source.option(false);
    });
    tapThread.join();
    EXPECT_EQ(calls, "");
    queue.runPending();
    EXPECT_EQ(calls, "yes start stop start stop ");
}

// An Option press that the application never gets.
TEST_F(GlobalKeyMonitorTest, handsOptionOnBeforeAnotherKey) {
    monitor->start();
    source.option(true);
    EXPECT_EQ(source.optionDowns, 0);
    EXPECT_EQ(source.letter(true), EventFate::pass);
    EXPECT_EQ(source.optionDowns, 1);
    EXPECT_EQ(source.letter(false), EventFate::pass);
    EXPECT_EQ(source.option(false), EventFate::pass);
    EXPECT_EQ(source.optionDowns, 1);
}

// Unset callbacks that are called all the same; a post that outlives the monitor.
TEST_F(GlobalKeyMonitorTest, needsNoListenersAndLeavesNothingBehind) {
    monitor->start();
    queue.runPending();
    monitor->onRecordStart = nullptr;
    source.option(true);
    EXPECT_EQ(source.space(true), EventFate::swallow);
    queue.runPending();
    EXPECT_EQ(source.space(false), EventFate::swallow);
    monitor.reset();
    queue.advance(MainQueue::Delay(30));
    EXPECT_EQ(calls, "yes ");
    EXPECT_FALSE(source.hasTap());
}

TEST_F(GlobalKeyMonitorTest, waitsForThePermission) {
    source.trusted = false;
    monitor->start();
    queue.advance(MainQueue::Delay(1.9));
    EXPECT_FALSE(monitor->isAccessibilityGranted());
    EXPECT_FALSE(monitor->isEventTapAlive());
    source.trusted = true;
    queue.advance(MainQueue::Delay(0.05));
    EXPECT_EQ(calls, "");  // the poll is every 2 s, no call was due for a state that did not change
    queue.advance(MainQueue::Delay(0.05));
    EXPECT_TRUE(monitor->isAccessibilityGranted());
    EXPECT_TRUE(monitor->isEventTapAlive());
    queue.advance(MainQueue::Delay(20));
    EXPECT_EQ(calls, "yes ");
    EXPECT_EQ(source.tapsMade, 1);
    EXPECT_THAT(printed.lines(), ElementsAre(started));
}

// A tap kept, or a permission poll begun, when the permission is taken away.
TEST_F(GlobalKeyMonitorTest, followsThePermission) {
    monitor->start();
    queue.advance(MainQueue::Delay(1));
    source.trusted = false;
    queue.advance(MainQueue::Delay(4));
    EXPECT_EQ(calls, "yes no ");
    EXPECT_FALSE(source.hasTap());
    EXPECT_FALSE(monitor->isAccessibilityGranted());
    EXPECT_FALSE(monitor->isEventTapAlive());

    source.trusted = true;
    queue.advance(MainQueue::Delay(4.9));
    EXPECT_FALSE(source.hasTap());  // seen by the health check only
    queue.advance(MainQueue::Delay(0.1));
    EXPECT_EQ(calls, "yes no yes ");
    EXPECT_TRUE(monitor->isEventTapAlive());
    EXPECT_THAT(printed.lines(), ElementsAre(started, started));
}

// The health check while the retry poll runs: the permission announced twice, or a second tap.
TEST_F(GlobalKeyMonitorTest, healthCheckMayFindThePermissionFirst) {
    source.trusted = false;
    monitor->start();
    queue.advance(MainQueue::Delay(4.5));
    source.trusted = true;
    queue.advance(MainQueue::Delay(0.5));
    EXPECT_EQ(calls, "yes ");
    EXPECT_EQ(source.tapsMade, 1);
    queue.advance(MainQueue::Delay(1));
    EXPECT_EQ(calls, "yes yes ");  // the poll that was still running ends with its own call
    queue.advance(MainQueue::Delay(20));
    EXPECT_EQ(calls, "yes yes ");
    EXPECT_EQ(source.tapsMade, 1);
}

TEST_F(GlobalKeyMonitorTest, replacesALostTap) {
    source.canCreate = false;
    monitor->start();
    EXPECT_TRUE(monitor->isAccessibilityGranted());
    EXPECT_FALSE(monitor->isEventTapAlive());
    queue.advance(MainQueue::Delay(5));
    EXPECT_FALSE(monitor->isEventTapAlive());
    source.canCreate = true;
    queue.advance(MainQueue::Delay(5));
    EXPECT_TRUE(monitor->isEventTapAlive());
    queue.advance(MainQueue::Delay(20));
    EXPECT_THAT(printed.lines(), ElementsAre(failed, recreating, failed, recreating, started));
}

TEST_F(GlobalKeyMonitorTest, reEnablesATapThatWasSwitchedOff) {
    monitor->start();
    source.enabled = false;
    queue.advance(MainQueue::Delay(4.9));
    EXPECT_FALSE(source.enabled);
    queue.advance(MainQueue::Delay(0.1));
    EXPECT_TRUE(source.enabled);

    source.enabled = false;
    EXPECT_EQ(source.send({.type = KeyEvent::Type::tapDisabledByTimeout}), EventFate::pass);
    EXPECT_TRUE(source.enabled);
    source.enabled = false;
    EXPECT_EQ(source.send({.type = KeyEvent::Type::tapDisabledByUserInput}), EventFate::pass);
    EXPECT_TRUE(source.enabled);
    EXPECT_THAT(printed.lines(),
                ElementsAre(started, reEnabling, "Event tap re-enabled after timeout",
                            "Event tap re-enabled after user input"));
}

TEST_F(GlobalKeyMonitorTest, stopLetsGoOfEverything) {
    monitor->start();
    monitor->stop();
    EXPECT_FALSE(source.hasTap());
    EXPECT_FALSE(monitor->isEventTapAlive());
    source.trusted = false;
    queue.advance(MainQueue::Delay(20));
    EXPECT_EQ(calls, "yes ");
    EXPECT_EQ(settingsOpened, 0);
    monitor->openAccessibilitySettings();
    EXPECT_EQ(settingsOpened, 1);
}

}  // namespace
}  // namespace nulo
