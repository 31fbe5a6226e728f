#include "hotkey/GlobalKeyMonitor.h"

#include <optional>
#include <string>
#include <thread>

#include "fakes/FakeEventTap.h"
#include "fakes/PartTest.h"
#include "hotkey/ChordStateMachine.h"

namespace nulo {
namespace {

class GlobalKeyMonitorTest : public PartTest {
  protected:
    GlobalKeyMonitorTest() {
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

// One letter an event: O/o Option down/up (with others unchanged), S/s Space, K/k another key,
// F another modifier. Answers: '.' pass, 'x' swallow, '+' swallow and start, '-' swallow and stop,
// 'p' Option-down posted and pass.
std::string reactionsTo(const std::string& events) {
    ChordStateMachine machine;
    bool option = false;
    std::string answers;
    for (const char letter : events) {
        KeyEvent event;
        if (letter == 'O' || letter == 'o')
            option = letter == 'O';
        if (std::string("OoF").find(letter) != std::string::npos)
            event = {.type = KeyEvent::Type::flagsChanged, .optionSet = option};
        else
            event = {.type = std::isupper(letter) ? KeyEvent::Type::keyDown : KeyEvent::Type::keyUp,
                     .isSpace = letter == 'S' || letter == 's'};
        const auto [fate, report, posted] = machine.handle(event);
        answers += report == ChordStateMachine::Report::recordStart  ? '+'
                   : report == ChordStateMachine::Report::recordStop ? '-'
                   : posted                                          ? 'p'
                   : fate == EventFate::swallow                      ? 'x'
                                                                     : '.';
    }
    return answers;
}

// Each row of the table from each state: a fate or a report that is wrong shows as one letter.
TEST(ChordStateMachine, followsItsTable) {
    const struct {
        const char *what, *events, *reactions;
    } rows[] = {
        {"idle passes everything but Option", "SskKFo", "......"},
        {"Option alone is hidden whole", "OoOo", "xxxx"},
        {"Option and another key", "OKkKo", "xp..."},
        {"armed: releases and other modifiers change nothing", "OkFsSso", "x...+-."},
        {"repeats start nothing", "OSSSSs", "x+xxx-"},
        {"Option released first: Space's release passes", "OSosSs", "x+-..."},
        {"Space released first: Option's release passes", "OSsoOo", "x+-.xx"},
        {"no second start while Option stays down", "OSsSs", "x+-.."},
        {"recording passes other keys and modifiers", "OSKkFSs", "x+...x-"},
        {"Space before Option", "SOso", ".x.x"},
        {"a source that knows the chord only, told twice", "OSsosoOSOSso", "x+-...x+.x-."},
        {"a modifier that finds Option down arms again", "OKFSs", "xpx+-"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(reactionsTo(row.events), row.reactions) << row.what << ": " << row.events;
}

}  // namespace
}  // namespace nulo
