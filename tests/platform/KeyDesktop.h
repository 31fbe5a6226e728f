#pragma once

#include <gmock/gmock.h>

#include "fakes/FakeMainQueue.h"
#include "fakes/PrintedLines.h"
#include "hotkey/GlobalKeyMonitor.h"
#include "pasting/InjectionGate.h"
#include "platform/Backends.h"
#include "rig/display/VirtualDisplay.h"
#include "rig/display/XTestKeyboard.h"
#include "rig/process/WaitUntil.h"
#include "support/KeyLoggingWindow.h"

namespace nulo {

using Keyboard = XTestKeyboard;

/// A user's monitor and keyboard on a private X server.
struct KeyDesktop {
    explicit KeyDesktop(
        VirtualDisplay::WindowManager windowManager = VirtualDisplay::WindowManager::none,
        const char* keys = "Option+Space")
        : server(windowManager),
          chord(parsedChord(keys).value()),
          option(chord.modifiers.contains(Chord::Modifier::super) ? Keyboard::superLeft
                                                                  : Keyboard::altLeft),
          space(chord.key == "D" ? Keyboard::d : Keyboard::space),
          source(makeX11EventTapSource(gate, queue, printed.print(), chord)) {
        keyboard.emplace();
        monitor.emplace(*source, queue, printed.print(), nullptr);
        monitor->onRecordStart = [this] { calls += '+'; };
        monitor->onRecordStop = [this] { calls += '-'; };
        monitor->start();
        EXPECT_TRUE(monitor->isEventTapAlive());
    }

    ~KeyDesktop() {
        // Whatever a test did: no key is down, and a fresh program gets plain keys.
        EXPECT_THAT(keyboard->keysDown(), testing::IsEmpty());
        KeyLoggingWindow fresh;
        keyboard->tap(Keyboard::a);
        EXPECT_EQ(typed(fresh), "+38 -38");
    }

    /// What was called since the last time, '+' a start and '-' a stop, once it is as long as
    /// expected.
    std::string takeCalls(std::size_t expected) {
        waitUntil([&] {
            queue.runPending();
            return calls.size() >= expected;
        });
        return std::exchange(calls, "");
    }

    /// Returns when the tap follows the focus to the window.
    static bool isTapped(KeyLoggingWindow& window, Keyboard::Key key = Keyboard::altLeft) {
        return waitUntil([&] { return window.isGrabbed(key); });
    }

    /// What the window got since the last call.
    std::string typed(KeyLoggingWindow& window) {
        keyboard->tap(Keyboard::f12);
        return window.keysUntil(Keyboard::f12);
    }

    /// O Option, S Space, A and X other keys, F Shift, R the right Option key, T Tab, Q F4, C
    /// Control.
    Keyboard::Key keyOf(char letter) const {
        const Keyboard::Key keys[] = {option,        space,           Keyboard::a,
                                      Keyboard::s,   Keyboard::shift, Keyboard::altRight,
                                      Keyboard::tab, Keyboard::f4,    Keyboard::controlLeft};
        return keys[std::string_view("OSAXFRTQC").find(static_cast<char>(std::toupper(letter)))];
    }

    /// Capitals press, small letters release; a 2 before one: on a second keyboard. B is the mouse
    /// button.
    void play(const std::string& events) {
        for (std::size_t i = 0; i < events.size(); ++i) {
            const bool isSecond = events[i] == '2';
            const char event = events[i += isSecond];
            const auto device = isSecond ? Keyboard::Device::own : Keyboard::Device::injecting;
            if (event == 'B' || event == 'b')
                keyboard->button(event == 'B');
            else
                std::isupper(event) ? keyboard->press(keyOf(event), device)
                                    : keyboard->release(keyOf(event), device);
        }
    }

    VirtualDisplay server;
    const Chord chord;
    const Keyboard::Key option;
    const Keyboard::Key space;
    InjectionGate gate;
    FakeMainQueue queue;
    PrintedLines printed;
    std::string calls;
    std::unique_ptr<EventTapSource> source;
    std::optional<XTestKeyboard> keyboard;
    std::optional<GlobalKeyMonitor> monitor;
};

/// One that the tap follows the focus to.
struct TappedWindow : KeyLoggingWindow {
    explicit TappedWindow(Input input = Input::core, Keyboard::Key key = Keyboard::altLeft)
        : KeyLoggingWindow(input) {
        EXPECT_TRUE(KeyDesktop::isTapped(*this, key));
    }
};

}  // namespace nulo
