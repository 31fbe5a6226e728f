#include <gmock/gmock.h>

#include <QApplication>

#include "fakes/FakeMainQueue.h"
#include "platform/Backends.h"
#include "rig/display/VirtualDisplay.h"
#include "rig/display/XTestKeyboard.h"
#include "support/KeyLoggingWindow.h"
#include "support/QtProgram.h"
#include "ui/alerts/Alert.h"
#include "ui/overlay/WaveformWindow.h"

namespace nulo {
namespace {

using Key = XTestKeyboard::Key;

/// Two monitors, a window manager, and another program's window that has the focus.
class OverlayFocusTest : public testing::Test {
  protected:
    OverlayFocusTest() {
        run("xrandr --setmonitor left 640/160x800/200+0+0 screen");
        run("xrandr --setmonitor right 640/160x800/200+640+0 none");
        client.emplace();
        qputenv("QT_QPA_PLATFORM", "xcb");
        program.emplace();
        placement = makeX11OverlayPlacement();
    }
    static void run(const std::string& command) { EXPECT_EQ(std::system(command.c_str()), 0); }
    void moveClient(std::uint32_t x) {
        xcb_configure_window(client->server, client->window, XCB_CONFIG_WINDOW_X, &x);
        xcb_flush(client->server);
    }
    /// The highest window there that takes clicks.
    xcb_window_t windowAt(int x, int y) {
        keyboard.movePointer(x, y);
        return NULO_XCB(xcb_query_pointer, client->server, client->root)->child;
    }
    bool comesUpIn(const QRect& frame) {
        return processUntil([&] { return placement->visibleFrame() == frame; });
    }

    VirtualDisplay server{VirtualDisplay::WindowManager::openbox};
    XTestKeyboard keyboard;
    std::optional<KeyLoggingWindow> client;
    std::optional<QtProgram<QApplication>> program;
    std::unique_ptr<OverlayPlacement> placement;
    FakeClock clock;
    FakeMainQueue queue{&clock};
};

// An overlay that takes the focus out of the program which the text is meant for, by being shown or
// clicked; that is covered by that program, or covers it with its shadow. Windows that come up on a
// screen where nobody works, or under the desktop's bars there.
TEST_F(OverlayFocusTest, staysWhereTheUserWorksWithoutEverTakingTheFocus) {
    const auto composited = NULO_XCB(xcb_intern_atom, client->server, 0, 13, "_NET_WM_CM_S0");
    xcb_set_selection_owner(client->server, client->window, composited->atom, XCB_CURRENT_TIME);
    xcb_flush(client->server);
    ASSERT_TRUE(processUntil([&] { return placement->isComposited(); }));
    moveClient(200);
    Published<std::vector<float>> levels;
    WaveformWindow overlay(queue, clock, *placement);
    overlay.show(levels);
    ASSERT_EQ(overlay.window()->frame(), QRect(170, 660, 300, 60));
    const auto window = static_cast<xcb_window_t>(overlay.window()->winId());
    EXPECT_TRUE(processUntil([&] { return windowAt(171, 690) == window; }));
    EXPECT_NE(windowAt(168, 690), window);
    keyboard.movePointer(200, 700);
    keyboard.button(true);
    keyboard.button(false);
    keyboard.tap(Key::a);
    keyboard.tap(Key::f12);
    EXPECT_EQ(client->keysUntil(Key::f12), "+38 -38");
    EXPECT_EQ(windowAt(171, 690), window);

    moveClient(700);
    EXPECT_TRUE(comesUpIn({640, 0, 640, 800}));
    // Bars between the two monitors, at the top of both and at the bottom of the right one.
    run("xprop -id " + std::to_string(client->window) + " -f _NET_WM_STRUT_PARTIAL 32c -set " +
        "_NET_WM_STRUT_PARTIAL '700, 0, 30, 40, 0, 799, 0, 0, 600, 700, 640, 1279'");
    EXPECT_TRUE(comesUpIn({700, 30, 580, 730}));
    moveClient(100);
    EXPECT_TRUE(comesUpIn({0, 30, 640, 770}));
    keyboard.movePointer(1000, 10);
    client.reset();
    EXPECT_TRUE(comesUpIn({640, 0, 640, 800})) << "where the pointer is";
}

// What is typed into another program answers an alert that comes up in between.
TEST_F(OverlayFocusTest, typingAnswersNoAlert) {
    const Alerts alerts(clock, [&] { return placement->visibleFrame(); });
    std::vector<std::size_t> answers;
    keyboard.press(Key::space);
    const auto show = [&](const std::string& message) {
        const QPointer<QWidget> alert =
            alerts.show({.message = message, .buttons = {"Install", "Later"}},
                        [&](std::size_t button) { answers.push_back(button); });
        EXPECT_TRUE(processUntil([&] { return alert->isActiveWindow(); }));
    };
    show("Install?");
    keyboard.release(Key::space);
    for (const auto key : {Key::a, Key::space, Key::enter})
        keyboard.tap(key);
    show("A fence");  // which has the focus only once the keys before it have arrived
    EXPECT_THAT(answers, testing::IsEmpty());
    clock.advance(std::chrono::seconds(1));
    keyboard.tap(Key::escape);
    EXPECT_TRUE(processUntil([&] { return !answers.empty(); }));
    EXPECT_THAT(answers, testing::ElementsAre(1u));
    qDeleteAll(QApplication::topLevelWidgets());
}

}  // namespace
}  // namespace nulo
