#include <sys/socket.h>

#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <future>
#include <mutex>
#include <sstream>
#include <thread>

#include "platform/KeyDesktop.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo {
namespace {

using testing::Contains;
using testing::ElementsAre;

constexpr auto started = "Global key monitor started (Option+Space)";

std::set<int> openSockets() {
    std::set<int> sockets;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;  // the listing's own descriptor is gone again
        if (std::filesystem::read_symlink(entry.path(), ignored).string().starts_with("socket:"))
            sockets.insert(std::stoi(entry.path().filename()));
    }
    return sockets;
}

// A take that never ends, or a key that stays down, when the window that is dictated into goes away
// or loses the focus.
TEST(X11EventTapFault, survivesTheFocusedWindow) {
    KeyDesktop desktop;
    std::optional<KeyLoggingWindow> window(std::in_place);
    ASSERT_TRUE(desktop.isTapped(*window));
    desktop.play("OS");
    window.reset();
    desktop.play("so");
    EXPECT_EQ(desktop.takeCalls(2), "+-");

    window.emplace();
    ASSERT_TRUE(desktop.isTapped(*window));
    desktop.play("O");
    window.reset();
    desktop.play("Aao");
    EXPECT_EQ(desktop.takeCalls(0), "");

    KeyLoggingWindow before;
    ASSERT_TRUE(desktop.isTapped(before));
    desktop.play("OS");
    KeyLoggingWindow after;
    desktop.play("so");
    EXPECT_EQ(desktop.typed(after), "-64");
    EXPECT_EQ(desktop.takeCalls(2), "+-");
    EXPECT_EQ(before.keys(), "");
}

// A chord typed into a screen lock, which has the keyboard for itself, or one that the paste types.
TEST(X11EventTapFault, beginsNothingWithKeysItDoesNotHold) {
    KeyDesktop desktop;
    KeyLoggingWindow window;
    ASSERT_TRUE(desktop.isTapped(window));
    window.grabKeyboard(true);
    desktop.play("OSso");
    EXPECT_EQ(desktop.typed(window), "+64 +65 -65 -64");
    window.grabKeyboard(false);
    {
        const auto injecting = desktop.gate.enter();
        desktop.play("OSso");
        EXPECT_EQ(desktop.typed(window), "+64 +65 -65 -64");
    }
    EXPECT_EQ(desktop.takeCalls(0), "");
}

// Keys injected into a frozen keyboard, where they would wait for, or be taken for, the user's.
TEST(X11EventTapFault, keepsInjectionWaitingWhileItHoldsTheKeyboard) {
    KeyDesktop desktop;
    KeyLoggingWindow window;
    ASSERT_TRUE(desktop.isTapped(window));
    desktop.play("OS");
    desktop.takeCalls(1);
    std::atomic<bool> entered = false;
    std::thread paste([&] {
        const auto scope = desktop.gate.enter();
        entered = true;
    });
    desktop.play("AaXx");
    EXPECT_FALSE(entered);
    desktop.play("so");
    EXPECT_TRUE(waitUntil([&] { return entered.load(); }));
    paste.join();
}

// A screen that cannot be locked while somebody dictates.
TEST(X11EventTapFault, givesTheKeyboardToAScreenLock) {
    KeyDesktop desktop;
    KeyLoggingWindow window;
    ASSERT_TRUE(desktop.isTapped(window));
    desktop.play("OS");
    EXPECT_EQ(desktop.takeCalls(1), "+");
    EXPECT_FALSE(window.grabKeyboard(true));
    desktop.source->letGo();
    EXPECT_TRUE(waitUntil([&] { return window.grabKeyboard(true); }));
    EXPECT_EQ(desktop.takeCalls(1), "-");
    desktop.play("so");
    window.grabKeyboard(false);
    desktop.typed(window);
}

// The spaces of a chord that is held while the program ends.
TEST(X11EventTapFault, hidesSpaceUntilItIsLetGoWhenItEnds) {
    KeyDesktop desktop;
    KeyLoggingWindow window;
    outputOf({"xset", "r", "rate", "60", "100"});
    ASSERT_TRUE(desktop.isTapped(window));
    desktop.play("OS");
    desktop.takeCalls(1);
    std::thread end([&] { desktop.monitor->stop(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // longer than the delay
    desktop.play("so");
    end.join();
    EXPECT_EQ(desktop.typed(window), "-64");
}

// A tap that is never made again, and a take that goes on because its end was not seen.
TEST(X11EventTapFault, comesBackAfterItsConnectionIsKilled) {
    VirtualDisplay server;
    PrintedLines printed;
    InjectionGate gate;
    FakeMainQueue queue;
    std::string calls;
    const auto source = makeX11EventTapSource(gate, queue, printed.print());
    XTestKeyboard keyboard;
    KeyLoggingWindow window;
    const auto others = openSockets();
    GlobalKeyMonitor monitor(*source, queue, printed.print(), nullptr);
    monitor.onRecordStart = [&] { calls += '+'; };
    monitor.onRecordStop = [&] { calls += '-'; };
    monitor.start();
    ASSERT_TRUE(KeyDesktop::isTapped(window));
    keyboard.press(Keyboard::altLeft);
    keyboard.press(Keyboard::space);
    ASSERT_TRUE(waitUntil([&] {
        queue.runPending();
        return calls == "+";
    }));
    for (const int socket : openSockets())
        if (!others.contains(socket))
            shutdown(socket, SHUT_RDWR);
    ASSERT_TRUE(waitUntil([&] { return !window.isGrabbed(Keyboard::altLeft); }));
    keyboard.release(Keyboard::space);
    keyboard.release(Keyboard::altLeft);
    const auto health = [&] {
        queue.advance(MainQueue::Delay(5));
        return calls == "+-";
    };
    EXPECT_TRUE(waitUntil(health)) << calls;
    EXPECT_THAT(printed.lines(), Contains("Event tap was disabled — re-enabling..."));

    ASSERT_TRUE(KeyDesktop::isTapped(window));
    keyboard.tap(Keyboard::f12);
    window.keysUntil(Keyboard::f12);
    for (const auto key : {Keyboard::altLeft, Keyboard::space})
        keyboard.press(key);
    for (const auto key : {Keyboard::space, Keyboard::altLeft})
        keyboard.release(key);
    keyboard.tap(Keyboard::f12);
    EXPECT_EQ(window.keysUntil(Keyboard::f12), "-64");
    EXPECT_TRUE(waitUntil([&] {
        queue.runPending();
        return calls == "+-+-";
    }));

    // The server dies: no tap any more, and a process that lives on.
    server.kill();
    const auto lost = [&] {
        queue.advance(MainQueue::Delay(5));
        return !monitor.isAccessibilityGranted() && !monitor.isEventTapAlive();
    };
    EXPECT_TRUE(waitUntil(lost));
}

// No display, and programs that take the key for themselves: said once, and no crash.
TEST(X11EventTapFault, saysWhyItDoesNotWork) {
    PrintedLines printed;
    InjectionGate gate;
    FakeMainQueue queue;
    VirtualDisplay server;
    const std::string display = server.display();
    setenv("DISPLAY", ":nowhere", 1);
    const auto source = makeX11EventTapSource(gate, queue, printed.print());
    EXPECT_FALSE(source->isTrusted());
    EXPECT_FALSE(source->isTrusted());
    EXPECT_EQ(source->createTap([](const KeyEvent&) { return EventFate::pass; }), nullptr);
    setenv("DISPLAY", display.c_str(), 1);
    EXPECT_TRUE(source->isTrusted());

    std::string obstructed;
    source->onObstructed = [&](bool now) { obstructed += now ? "yes " : "no "; };
    const auto hasCalled = [&](const char* calls) {
        return waitUntil([&] {
            queue.runPending();
            return obstructed == calls;
        });
    };
    KeyLoggingWindow window;
    window.grabKey(Keyboard::altLeft);
    EXPECT_FALSE(source->isTrusted());
    KeyLoggingWindow other;
    other.grabKeyOfDesktop(Keyboard::altLeft, true);
    EXPECT_FALSE(source->isTrusted());
    other.grabKeyOfDesktop(Keyboard::altLeft, false);
    EXPECT_TRUE(source->isTrusted());

    // An obstacle that comes later, in one window or on the desktop: the tap stays.
    const auto tap = source->createTap([](const KeyEvent&) { return EventFate::pass; });
    ASSERT_NE(tap, nullptr);
    EXPECT_TRUE(tap->isEnabled());
    window.takeFocus();
    EXPECT_TRUE(hasCalled("yes ")) << obstructed;
    EXPECT_TRUE(source->isTrusted());
    other.takeFocus();
    EXPECT_TRUE(hasCalled("yes no ")) << obstructed;
    EXPECT_TRUE(tap->isEnabled());  // by the server's own answer, which the first call asked for
    XTestKeyboard keyboard;
    window.grabKeyOfDesktop(Keyboard::altLeft, true);
    keyboard.tap(Keyboard::altLeft);
    EXPECT_TRUE(hasCalled("yes no yes ")) << obstructed;
    window.grabKeyOfDesktop(Keyboard::altLeft, false);
    keyboard.tap(Keyboard::altLeft);
    EXPECT_TRUE(hasCalled("yes no yes no ")) << obstructed;
    constexpr auto ofWindow =
        "No global shortcut: another program has taken the Alt key of the focused window";
    constexpr auto ofDesktop =
        "No global shortcut: another program has taken the Alt key of the whole desktop";
    EXPECT_THAT(printed.lines(), ElementsAre("No global shortcut: the X server cannot be reached",
                                             ofWindow, ofDesktop, ofWindow, ofDesktop));
    EXPECT_FALSE(makeUnavailableEventTapSource()->isTrusted());
}

// A tap whose own thread hangs with the keyboard frozen: a dead keyboard for good.
TEST(X11EventTapFault, letsGoOfTheKeyboardWhenItsThreadHangs) {
    VirtualDisplay server;
    InjectionGate gate;
    FakeMainQueue queue;
    XTestKeyboard keyboard;
    KeyLoggingWindow window;
    std::promise<void> finish;
    std::promise<void> timedOut;
    const auto source = makeX11EventTapSource(gate, queue, [](std::string_view) {});
    const auto tap = source->createTap([&](const KeyEvent& event) {
        if (event.type == KeyEvent::Type::tapDisabledByTimeout)
            timedOut.set_value();
        else if (event.type == KeyEvent::Type::keyDown)
            finish.get_future().wait();
        return event.type == KeyEvent::Type::flagsChanged && event.optionSet ? EventFate::swallow
                                                                             : EventFate::pass;
    });
    ASSERT_TRUE(KeyDesktop::isTapped(window));
    keyboard.press(Keyboard::altLeft);
    keyboard.press(Keyboard::a);
    keyboard.release(Keyboard::a);
    keyboard.release(Keyboard::altLeft);
    keyboard.tap(Keyboard::f12);
    EXPECT_EQ(window.keysUntil(Keyboard::f12), "+38 -38 -64");
    finish.set_value();
    EXPECT_EQ(timedOut.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_FALSE(tap->isEnabled());
    EXPECT_THAT(keyboard.keysDown(), testing::IsEmpty());
}

/// The monitor in a process that can be stopped and killed.
class MonitorProcess {
  public:
    explicit MonitorProcess(KeyLoggingWindow& window)
        : process({NULO_BINARY_FOLDER "/key_monitor"}, {.environment = {}, .log = folder / "log"}) {
        EXPECT_TRUE(prints(started));
        EXPECT_TRUE(KeyDesktop::isTapped(window));
    }

    bool prints(const std::string& line) {
        return waitUntil([&] {
            std::ostringstream text;
            text << std::ifstream(folder / "log").rdbuf();
            return text.str().find(line + "\n") != std::string::npos;
        });
    }

    /// Returns when not one of its threads runs any more.
    bool stop() {
        process.signal(SIGSTOP);
        return waitUntil([&] {
            const auto threads = "/proc/" + std::to_string(process.pid()) + "/task";
            for (const auto& thread : std::filesystem::directory_iterator(threads)) {
                std::ostringstream text;
                text << std::ifstream(thread.path() / "stat").rdbuf();
                if (text.str().find(") T ") == std::string::npos)
                    return false;
            }
            return true;
        });
    }

    TemporaryFolder folder;
    ChildProcess process;
};

// The program stopped by a debugger, or killed, between Option's press and what follows.
TEST(X11EventTapFault, givesTheKeyboardBackAfterBeingStopped) {
    VirtualDisplay server;
    XTestKeyboard keyboard;
    KeyLoggingWindow window;
    MonitorProcess monitor(window);
    keyboard.press(Keyboard::altLeft);
    keyboard.press(Keyboard::space);
    ASSERT_TRUE(monitor.prints("start"));
    ASSERT_TRUE(monitor.stop());
    keyboard.release(Keyboard::space);
    keyboard.release(Keyboard::altLeft);
    keyboard.tap(Keyboard::a);
    // For longer than the tap may leave events unanswered.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_EQ(window.keys(), "") << "the keyboard was not frozen: the test shows nothing";
    monitor.process.signal(SIGCONT);
    keyboard.tap(Keyboard::f12);
    EXPECT_THAT(window.keysUntil(Keyboard::f12), testing::EndsWith("+38 -38"));
    EXPECT_TRUE(monitor.prints("Event tap re-enabled after timeout"));
    EXPECT_TRUE(monitor.prints("stop"));
    EXPECT_THAT(keyboard.keysDown(), testing::IsEmpty());

    ASSERT_TRUE(KeyDesktop::isTapped(window));
    keyboard.press(Keyboard::altLeft);
    ASSERT_TRUE(monitor.stop());
    keyboard.tap(Keyboard::a);
    EXPECT_EQ(window.keys(), "");
    monitor.process.signal(SIGKILL);
    keyboard.release(Keyboard::altLeft);
    keyboard.tap(Keyboard::f12);
    EXPECT_EQ(window.keysUntil(Keyboard::f12), "+38 -38 -64");
}

}  // namespace
}  // namespace nulo
