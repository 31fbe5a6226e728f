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

constexpr auto started = "Global key monitor started (Option+Space)";
constexpr auto failed = "Failed to create event tap. Check Accessibility permissions.";
constexpr auto reEnabling = "Event tap was disabled — re-enabling...";
constexpr auto recreating = "Event tap lost — recreating...";

class GlobalKeyMonitorTest : public testing::Test {
  protected:
    GlobalKeyMonitorTest() {
        monitor.emplace(source, queue, printed.print(), nullptr);
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
    std::optional<GlobalKeyMonitor> monitor;
};

// Callbacks made inside the tap's handler, out of order, or twice; an Option press that the
// application never gets.
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
        source.option(true);
        EXPECT_EQ(source.optionDowns, 0);
        EXPECT_EQ(source.letter(true), EventFate::pass);
        EXPECT_EQ(source.optionDowns, 1);
        EXPECT_EQ(source.option(false), EventFate::pass);
    });
    tapThread.join();
    EXPECT_EQ(calls, "");
    queue.runPending();
    EXPECT_EQ(calls, "yes start stop start stop ");
}

/// A shortcut that a desktop watches: told as a whole, it makes the key events of Option+Space.
void tellChord(FakeEventTapSource& source, bool down) {
    if (down)
        source.option(true);
    source.space(down);
    if (!down)
        source.option(false);
}

// A source without keys that would need a monitor of its own.
TEST_F(GlobalKeyMonitorTest, worksWithASourceThatKnowsTheChordOnly) {
    monitor->start();
    for (const bool down : {true, false, false, true, true, false})
        tellChord(source, down);
    queue.runPending();
    EXPECT_EQ(calls, "yes start stop start stop ");
}

// Callbacks that are not set, or called after the end; a tap, timer or poll that stays.
TEST_F(GlobalKeyMonitorTest, needsNoListenersAndLeavesNothingBehind) {
    monitor->start();
    queue.runPending();
    monitor->onRecordStart = nullptr;
    tellChord(source, true);
    queue.runPending();
    monitor->stop();
    EXPECT_FALSE(source.hasTap());
    EXPECT_FALSE(monitor->isEventTapAlive());
    monitor->start();
    tellChord(source, true);
    monitor.reset();
    source.trusted = false;
    queue.advance(MainQueue::Delay(30));
    EXPECT_EQ(calls, "yes ");
}

// The permission announced late, twice or never, a tap made twice or kept: the poll every 2 s that
// runs while it is missing at the start, and the look every 5 s.
TEST_F(GlobalKeyMonitorTest, followsThePermission) {
    const struct {
        double seconds;
        bool trusted;  // from then on
        std::string calls;
    } timeline[] = {{1.9, true, ""},        {0.05, true, ""},          {0.05, true, "yes "},
                    {3.5, false, "yes "},  // at 5.5
                    {4.4, false, "yes "},   {0.1, false, "yes no "},   {3.0, true, "yes no "},
                    {1.9, true, "yes no "}, {0.1, true, "yes no yes "}};
    source.trusted = false;
    monitor->start();
    for (const auto& [seconds, trusted, expected] : timeline) {
        const bool alive = expected.ends_with("yes ");
        queue.advance(MainQueue::Delay(seconds));
        EXPECT_EQ(calls, expected);
        EXPECT_EQ(monitor->isEventTapAlive(), alive);
        EXPECT_EQ(source.hasTap(), alive);
        source.trusted = trusted;
    }
    EXPECT_EQ(source.tapsMade, 2);

    // Begun anew, the look finds the permission first: the poll then ends with a call of its own.
    monitor.emplace(source, queue, printed.print(), nullptr);
    calls.clear();
    monitor->onAccessibilityChanged = [this](bool granted) { calls += granted ? "yes " : "no "; };
    source.trusted = false;
    monitor->start();
    queue.advance(MainQueue::Delay(4.5));
    source.trusted = true;
    queue.advance(MainQueue::Delay(20));
    EXPECT_EQ(calls, "yes yes ");
    EXPECT_EQ(source.tapsMade, 3);
}

// A tap that cannot be made, or that was switched off.
TEST_F(GlobalKeyMonitorTest, keepsTheTapAlive) {
    source.canCreate = false;
    monitor->start();
    queue.advance(MainQueue::Delay(5));
    EXPECT_FALSE(monitor->isEventTapAlive());
    source.canCreate = true;
    queue.advance(MainQueue::Delay(5));
    EXPECT_TRUE(monitor->isEventTapAlive());
    source.enabled = false;
    queue.advance(MainQueue::Delay(5));
    EXPECT_TRUE(source.enabled);
    for (const auto type :
         {KeyEvent::Type::tapDisabledByTimeout, KeyEvent::Type::tapDisabledByUserInput}) {
        source.enabled = false;
        EXPECT_EQ(source.send({.type = type}), EventFate::pass);
        EXPECT_TRUE(source.enabled);
    }
    EXPECT_THAT(printed.lines(), ElementsAre(failed, recreating, failed, recreating, started,
                                             reEnabling, "Event tap re-enabled after timeout",
                                             "Event tap re-enabled after user input"));
}

}  // namespace
}  // namespace nulo
