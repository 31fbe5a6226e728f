#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <random>

#include "fakes/FakeMainQueue.h"
#include "fakes/PrintedLines.h"
#include "hotkey/GlobalKeyMonitor.h"
#include "platform/Backends.h"
#include "platform/InjectionGate.h"
#include "support/KeyLoggingWindow.h"
#include "support/TestXServer.h"
#include "support/WaitUntil.h"
#include "support/XTestKeyboard.h"

namespace nulo {
namespace {

using Keyboard = XTestKeyboard;

/// A user's monitor and keyboard on a private X server.
class Desktop {
  public:
    explicit Desktop(TestXServer::WindowManager windowManager)
        : server(windowManager), source(makeX11EventTapSource(gate, printed.print())) {
        keyboard.emplace();
        monitor.emplace(*source, queue, printed.print(), nullptr);
        monitor->onRecordStart = [this] { calls += '+'; };
        monitor->onRecordStop = [this] { calls += '-'; };
        monitor->start();
        EXPECT_TRUE(monitor->isEventTapAlive());
    }

    ~Desktop() {
        // Whatever a test did: no key is down, and a fresh program gets plain keys.
        EXPECT_THAT(keyboard->keysDown(), testing::IsEmpty());
        KeyLoggingWindow fresh;
        keyboard->tap(Keyboard::a);
        EXPECT_EQ(typed(fresh), "+38 -38");
    }

    /// '+' for each start and '-' for each stop since the last call.
    std::string takeCalls() {
        queue.runPending();
        return std::exchange(calls, "");
    }

    bool waitForCalls(const std::string& expected) {
        return waitUntil([&] {
            queue.runPending();
            return calls == expected;
        });
    }

    /// Returns when the tap follows the focus to the window.
    static bool isTapped(KeyLoggingWindow& window) {
        return waitUntil([&] { return window.isGrabbed(Keyboard::altLeft); });
    }

    /// What the window got since the last call.
    std::string typed(KeyLoggingWindow& window) {
        keyboard->tap(Keyboard::f12);
        return window.keysUntil(Keyboard::f12);
    }

    /// Capitals press, small letters release: O Option, S Space, A and X other keys, F Shift,
    /// R the right Option key.
    void play(const std::string& events) {
        for (const char event : events) {
            const auto key =
                std::map<char, Keyboard::Key>{
                    {'O', Keyboard::altLeft}, {'S', Keyboard::space}, {'A', Keyboard::a},
                    {'X', Keyboard::s},       {'F', Keyboard::shift}, {'R', Keyboard::altRight},
                    {'T', Keyboard::tab},     {'Q', Keyboard::f4},
                }
                    .at(static_cast<char>(std::toupper(event)));
            if (std::isupper(event))
                keyboard->press(key);
            else
                keyboard->release(key);
        }
    }

    TestXServer server;
    InjectionGate gate;
    FakeMainQueue queue;
    PrintedLines printed;
    std::string calls;
    std::unique_ptr<EventTapSource> source;
    std::optional<XTestKeyboard> keyboard;
    std::optional<GlobalKeyMonitor> monitor;
};

// Each row of the chord's table as a program sees it: a swallowed key that shows, a passed one that
// does not, an Option press that comes late or twice, a start or stop that is missed.
TEST(X11EventTap, showsProgramsWhatTheTableSays) {
    Desktop desktop(TestXServer::WindowManager::none);
    KeyLoggingWindow window;
    ASSERT_TRUE(desktop.isTapped(window));
    const struct {
        const char *what, *events, *calls, *seen;
    } rows[] = {
        {"plain typing", "AaSsFXxf", "", "+38 -38 +65 -65 +50 +39 -39 -50"},
        {"Option alone", "Oo", "", ""},
        {"the chord, Space released first", "OSso", "+-", "-64"},
        {"the chord, Option released first", "OSos", "+-", "-65"},
        {"no second start while Option stays down", "OSsSso", "+-", "+65 -65 -64"},
        {"an Option combination", "OAao", "", "+64 +38 -38 -64"},
        {"a second key of a combination", "OAaXxSso", "", "+64 +38 -38 +39 -39 +65 -65 -64"},
        {"another modifier in between", "OFAafo", "", "+64 +50 +38 -38 -50 -64"},
        {"another modifier alone", "OFfo", "", "+50 -50"},
        {"another modifier and the chord", "OFSsfo", "+-", "+50 -50 -64"},
        {"a key released while armed", "AOaSso", "+-", "+38 -38 -64"},
        {"a key released, then a combination", "AOaXxo", "", "+38 +64 -38 +39 -39 -64"},
        {"other keys while recording", "OSAaFXxfso", "+-", "+38 -38 +50 +39 -39 -50 -64"},
        {"a key held across the whole chord", "AOSsoa", "+-", "+38 -64 -38"},
        {"Space first", "SOso", "", "+65 -65"},
        {"Option again while Space is still down", "OSoOso", "+-", "-65"},
        {"the right Option key", "RSsr", "+-", "-108"},
        {"both Option keys", "ORSros", "+-", "+108 -108 -65"},
        {"one chord after another", "OSsoOSosOSso", "+-+-+-", "-64 -65 -64"},
    };
    for (const auto& row : rows) {
        desktop.play(row.events);
        EXPECT_EQ(desktop.typed(window), row.seen) << row.what << ": " << row.events;
        EXPECT_TRUE(desktop.waitForCalls(row.calls)) << row.what << ": " << desktop.calls;
        desktop.calls.clear();
        EXPECT_THAT(desktop.keyboard->keysDown(), testing::IsEmpty()) << row.what;
    }
}

}  // namespace
}  // namespace nulo
