#include "hotkey/GlobalKeyMonitor.h"

#include <optional>
#include <thread>

#include "fakes/FakeEventTap.h"
#include "fakes/PartTest.h"

namespace nulo {
namespace {

class GlobalKeyMonitorTest : public PartTest {
  protected:
    GlobalKeyMonitorTest() { make(); }
    void make() {
        monitor.emplace(source, m_queue, m_printed.print(), nullptr);
        monitor->onRecordStart = [this] { calls += "start "; };
        monitor->onRecordStop = [this] { calls += "stop "; };
        monitor->onAccessibilityChanged = [this](bool granted) {
            calls += granted ? "yes " : "no ";
        };
    }
    void wait(double seconds) { m_queue.advance(MainQueue::Delay(seconds)); }

    FakeEventTapSource source;
    std::string calls;
    std::optional<GlobalKeyMonitor> monitor;
};

// Callbacks made inside the tap's handler, out of order, or twice; an Option press that the
// application never gets.
TEST_F(GlobalKeyMonitorTest, postsTheChordToMainInOrder) {
    monitor->start();
    std::thread([this] {
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
    }).join();
    EXPECT_EQ(calls, "");
    m_queue.runPending();
    EXPECT_EQ(calls, "yes start stop start stop ");
}

// Callbacks that are not set, or called after the end; a tap, timer or poll that stays.
TEST_F(GlobalKeyMonitorTest, needsNoListenersAndLeavesNothingBehind) {
    monitor->start();
    monitor->onRecordStart = nullptr;
    source.option(true);
    source.space(true);
    m_queue.runPending();
    monitor->stop();
    EXPECT_FALSE(source.hasTap() || monitor->isEventTapAlive());
    monitor->start();
    source.space(false);
    monitor.reset();
    source.trusted = false;
    wait(30);
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
        wait(seconds);
        EXPECT_EQ(calls, expected);
        EXPECT_EQ(monitor->isEventTapAlive(), expected.ends_with("yes "));
        EXPECT_EQ(source.hasTap(), expected.ends_with("yes "));
        source.trusted = trusted;
    }
    EXPECT_EQ(source.tapsMade, 2);

    // Begun anew, the look finds the permission first: the poll then ends with a call of its own.
    make();
    calls.clear();
    source.trusted = false;
    monitor->start();
    wait(4.5);
    source.trusted = true;
    wait(20);
    EXPECT_EQ(calls, "yes yes ");
    EXPECT_EQ(source.tapsMade, 3);
}

// A tap that cannot be made, or that was switched off.
TEST_F(GlobalKeyMonitorTest, keepsTheTapAlive) {
    const std::string failed = "Failed to create event tap. Check Accessibility permissions.";
    const std::string recreating = "Event tap lost — recreating...";
    source.canCreate = false;
    monitor->start();
    wait(5);
    EXPECT_FALSE(monitor->isEventTapAlive());
    source.canCreate = true;
    wait(5);
    EXPECT_TRUE(monitor->isEventTapAlive());
    source.enabled = false;
    wait(5);
    EXPECT_TRUE(source.enabled);
    for (const auto type :
         {KeyEvent::Type::tapDisabledByTimeout, KeyEvent::Type::tapDisabledByUserInput}) {
        source.enabled = false;
        EXPECT_EQ(source.send({.type = type}), EventFate::pass);
        EXPECT_TRUE(source.enabled);
    }
    EXPECT_THAT(m_printed.lines(), ElementsAre(failed, recreating, failed, recreating,
                                               "Global key monitor started (Option+Space)",
                                               "Event tap was disabled — re-enabling...",
                                               "Event tap re-enabled after timeout",
                                               "Event tap re-enabled after user input"));
}

}  // namespace
}  // namespace nulo
