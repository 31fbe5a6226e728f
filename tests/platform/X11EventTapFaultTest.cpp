#include <sys/socket.h>
#include <sys/wait.h>

#include <future>

#include "base/FileIO.h"
#include "platform/KeyDesktop.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo {
namespace {

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
    for (const auto& [before, after, calls] : {std::tuple("OS", "so", "+-"), {"O", "Aao", ""}}) {
        std::optional<TappedWindow> window(std::in_place);
        desktop.play(before);
        window.reset();
        desktop.play(after);
        EXPECT_EQ(desktop.takeCalls(std::string(calls).size()), calls);
    }
    // One that comes at once, and has the id of the one before.
    for (int i = 0; i < 20; ++i)
        TappedWindow();
    TappedWindow before;
    desktop.play("OS");
    KeyLoggingWindow after;
    desktop.play("so");
    EXPECT_EQ(desktop.typed(after), "-64");
    EXPECT_EQ(desktop.takeCalls(2), "+-");
    EXPECT_EQ(before.keys(), "");
}

// A chord typed into a screen lock, which has the keyboard for itself, or one that the paste types;
// a screen that cannot be locked while somebody dictates.
TEST(X11EventTapFault, leavesTheKeyboardToOthers) {
    KeyDesktop desktop;
    TappedWindow window;
    window.grabKeyboard(true);
    desktop.play("OSso");
    EXPECT_EQ(desktop.typed(window), "+64 +65 -65 -64");
    window.grabKeyboard(false);
    {
        const auto injecting = desktop.gate.enter();
        desktop.play("OSso");
        EXPECT_EQ(desktop.typed(window), "+64 +65 -65 -64");
        EXPECT_EQ(desktop.takeCalls(0), "");
    }
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

// A tap that is never made again, and a take that goes on because its end was not seen.
TEST(X11EventTapFault, comesBackAfterItsConnectionIsKilled) {
    KeyDesktop desktop;
    KeyLoggingWindow window;
    desktop.monitor->stop();
    const auto others = openSockets();
    desktop.monitor->start();
    ASSERT_TRUE(desktop.isTapped(window));
    desktop.play("OS");
    EXPECT_EQ(desktop.takeCalls(1), "+");
    for (const int socket : openSockets())
        if (!others.contains(socket))
            shutdown(socket, SHUT_RDWR);
    ASSERT_TRUE(waitUntil([&] { return !window.isGrabbed(Keyboard::altLeft); }));
    desktop.play("so");
    EXPECT_TRUE(waitUntil([&] {
        desktop.queue.advance(MainQueue::Delay(5));
        return desktop.calls == "-";
    }));
    EXPECT_THAT(desktop.printed.lines(),
                testing::Contains("Event tap was disabled — re-enabling..."));
    ASSERT_TRUE(desktop.isTapped(window));
    desktop.typed(window);
    desktop.play("OSso");
    EXPECT_EQ(desktop.typed(window), "-64");
    EXPECT_EQ(desktop.takeCalls(3), "-+-");
}

// No display, and programs that take the key for themselves: said once, and no crash. While there
// is a tap, it stays.
TEST(X11EventTapFault, saysWhyItDoesNotWork) {
    PrintedLines printed;
    InjectionGate gate;
    FakeMainQueue queue;
    VirtualDisplay server;
    setenv("DISPLAY", ":nowhere", 1);
    const auto source = makeX11EventTapSource(gate, queue, printed.print());
    const auto passAll = [](const KeyEvent&) { return EventFate::pass; };
    EXPECT_FALSE(source->isTrusted() || source->isTrusted());
    EXPECT_EQ(source->createTap(passAll), nullptr);
    setenv("DISPLAY", server.display().c_str(), 1);
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
    window.grabKey(Keyboard::altLeft, window.window);
    EXPECT_FALSE(source->isTrusted());
    KeyLoggingWindow other;
    other.grabKey(Keyboard::altLeft, window.root);
    EXPECT_FALSE(source->isTrusted());
    other.grabKey(Keyboard::altLeft, window.root, false);
    EXPECT_TRUE(source->isTrusted());
    const auto tap = source->createTap(passAll);
    ASSERT_TRUE(tap && tap->isEnabled());
    window.takeFocus();
    EXPECT_TRUE(hasCalled("yes ") && source->isTrusted()) << obstructed;
    other.takeFocus();
    EXPECT_TRUE(hasCalled("yes no ")) << obstructed;
    EXPECT_TRUE(tap->isEnabled());  // by the server's own answer, which the first call asked for
    XTestKeyboard keyboard;
    window.grabKey(Keyboard::altLeft, window.root);
    keyboard.tap(Keyboard::altLeft);
    EXPECT_TRUE(hasCalled("yes no yes ")) << obstructed;
    window.grabKey(Keyboard::altLeft, window.root, false);
    keyboard.tap(Keyboard::altLeft);
    EXPECT_TRUE(hasCalled("yes no yes no ")) << obstructed;
    const auto ofWindow = testing::HasSubstr("the Alt key of the focused window");
    const auto ofDesktop = testing::HasSubstr("the Alt key of the whole desktop");
    EXPECT_THAT(printed.lines(),
                testing::ElementsAre("No global shortcut: the X server cannot be reached", ofWindow,
                                     ofDesktop, ofWindow, ofDesktop));
    server.kill();
    EXPECT_TRUE(waitUntil([&] { return !source->isTrusted() && !tap->isEnabled(); }));
}

// A tap whose own thread hangs with the keyboard frozen: a dead keyboard for good.
TEST(X11EventTapFault, letsGoOfTheKeyboardWhenItsThreadHangs) {
    KeyDesktop desktop;
    KeyLoggingWindow window;
    desktop.monitor->stop();
    std::promise<void> finish, timedOut;
    const auto tap = desktop.source->createTap([&](const KeyEvent& event) {
        if (event.type == KeyEvent::Type::tapDisabledByTimeout)
            timedOut.set_value();
        else if (event.type == KeyEvent::Type::keyDown)
            finish.get_future().wait();
        return event.type == KeyEvent::Type::flagsChanged && event.optionSet ? EventFate::swallow
                                                                             : EventFate::pass;
    });
    ASSERT_TRUE(desktop.isTapped(window));
    desktop.play("OAao");
    EXPECT_EQ(desktop.typed(window), "+38 -38 -64");
    finish.set_value();
    EXPECT_EQ(timedOut.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_FALSE(tap->isEnabled());
}

// The program stopped by a debugger, or killed, between Option's press and what follows.
TEST(X11EventTapFault, givesTheKeyboardBackAfterBeingStopped) {
    KeyDesktop desktop;
    KeyLoggingWindow window;
    desktop.monitor->stop();
    TemporaryFolder folder;
    ChildProcess process({NULO_BINARY_FOLDER "/key_monitor"},
                         {.environment = {}, .log = folder / "log"});
    const auto prints = [&](const std::string& line) {
        const auto printed = [&] { return readFile(folder / "log", 10'000).value_or(""); };
        return waitUntil([&] { return printed().find(line + "\n") != std::string::npos; });
    };
    // Returns when not one of its threads runs any more.
    const auto stop = [&] {
        process.signal(SIGSTOP);
        return waitpid(process.pid(), nullptr, WUNTRACED) == process.pid();
    };
    ASSERT_TRUE(prints("listening"));  // its first look takes the keys too, for a moment
    desktop.play("OS");
    ASSERT_TRUE(prints("start"));
    ASSERT_TRUE(stop());
    desktop.play("soAa");
    // For longer than the tap may leave events unanswered.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_EQ(window.keys(), "") << "the keyboard was not frozen: the test shows nothing";
    process.signal(SIGCONT);
    EXPECT_THAT(desktop.typed(window), testing::EndsWith("+38 -38"));
    EXPECT_TRUE(prints("Event tap re-enabled after timeout"));
    EXPECT_TRUE(prints("stop"));

    ASSERT_TRUE(desktop.isTapped(window));
    desktop.play("O");
    ASSERT_TRUE(stop());
    desktop.play("Aa");
    EXPECT_EQ(window.keys(), "");
    process.signal(SIGKILL);
    desktop.play("o");
    EXPECT_EQ(desktop.typed(window), "+38 -38 -64");
}

}  // namespace
}  // namespace nulo
