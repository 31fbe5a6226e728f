#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include <QApplication>
#include <optional>

#include "fakes/FakeMainQueue.h"
#include "platform/Backends.h"
#include "platform/x11/Xcb.h"
#include "rig/display/VirtualDisplay.h"
#include "rig/display/XTestKeyboard.h"
#include "rig/process/WaitUntil.h"
#include "support/KeyLoggingWindow.h"
#include "ui/alerts/Alert.h"
#include "ui/overlay/WaveformWindow.h"

namespace nulo {
namespace {

/// Two monitors, a window manager, and another program's window that has the focus.
class OverlayFocusTest : public testing::Test {
  protected:
    OverlayFocusTest() {
        run("xrandr --setmonitor left 640/160x800/200+0+0 screen");
        run("xrandr --setmonitor right 640/160x800/200+640+0 none");
        client.emplace();
        qputenv("QT_QPA_PLATFORM", "xcb");
        application.emplace(argumentCount, arguments);
        placement = makeX11OverlayPlacement();
    }
    ~OverlayFocusTest() override { xcb_disconnect(connection); }
    static void run(const std::string& command) { EXPECT_EQ(std::system(command.c_str()), 0); }
    void moveClient(std::uint32_t x) {
        xcb_configure_window(connection, client->window(), XCB_CONFIG_WINDOW_X, &x);
        xcb_flush(connection);
    }
    /// The highest window there that takes clicks.
    xcb_window_t windowAt(int x, int y) {
        keyboard.movePointer(x, y);
        const auto found = xcb_query_pointer(connection, root);
        return owned(xcb_query_pointer_reply(connection, found, nullptr))->child;
    }
    template <typename Condition>
    bool processUntil(Condition condition) {
        return waitUntil([&] {
            QCoreApplication::processEvents();
            return condition();
        });
    }
    bool comesUpIn(const QRect& frame) {
        return processUntil([&] { return placement->visibleFrame() == frame; });
    }

    VirtualDisplay server{VirtualDisplay::WindowManager::openbox};
    XTestKeyboard keyboard;
    xcb_connection_t* const connection = xcb_connect(nullptr, nullptr);
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    std::optional<KeyLoggingWindow> client;
    char name[8] = "overlay";
    char* arguments[2] = {name, nullptr};
    int argumentCount = 1;
    std::optional<QApplication> application;
    std::unique_ptr<OverlayPlacement> placement;
    FakeClock clock;
    FakeMainQueue queue{&clock};
};

// Windows that come up on a screen where nobody works, or under the desktop's bars there.
TEST_F(OverlayFocusTest, findsTheScreenThatTheUserWorksOn) {
    moveClient(700);
    EXPECT_TRUE(comesUpIn({640, 0, 640, 800}));
    // Bars between the two monitors, at the top of both and at the bottom of the right one.
    run("xprop -id " + std::to_string(client->window()) + " -f _NET_WM_STRUT_PARTIAL 32c -set " +
        "_NET_WM_STRUT_PARTIAL '700, 0, 30, 40, 0, 799, 0, 0, 600, 700, 640, 1279'");
    EXPECT_TRUE(comesUpIn({700, 30, 580, 730}));
    moveClient(100);
    EXPECT_TRUE(comesUpIn({0, 30, 640, 770}));
    keyboard.movePointer(1000, 10);
    client.reset();
    EXPECT_TRUE(comesUpIn({640, 0, 640, 800})) << "where the pointer is";
}

// An overlay that takes the focus out of the program which the text is meant for, by being shown or
// clicked; that is covered by that program, or covers it with its shadow.
TEST_F(OverlayFocusTest, staysAboveWithoutEverTakingTheFocus) {
    const auto composited = owned(xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, 13, "_NET_WM_CM_S0"), nullptr));
    xcb_set_selection_owner(connection, client->window(), composited->atom, XCB_CURRENT_TIME);
    xcb_flush(connection);
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
    keyboard.tap(XTestKeyboard::a);
    keyboard.tap(XTestKeyboard::f12);
    EXPECT_EQ(client->keysUntil(XTestKeyboard::f12), "+38 -38");
    EXPECT_EQ(windowAt(171, 690), window);
}

// What is typed into another program answers an alert that comes up in between.
TEST_F(OverlayFocusTest, typingAnswersNoAlert) {
    const Alerts alerts(clock, [&] { return placement->visibleFrame(); });
    std::vector<std::size_t> answers;
    keyboard.press(XTestKeyboard::space);
    const auto show = [&](const std::string& message) {
        const QPointer<QWidget> alert =
            alerts.show({.message = message, .buttons = {"Install", "Later"}},
                        [&](std::size_t button) { answers.push_back(button); });
        EXPECT_TRUE(processUntil([&] { return alert->isActiveWindow(); }));
    };
    show("Install?");
    keyboard.release(XTestKeyboard::space);
    for (const auto key : {XTestKeyboard::a, XTestKeyboard::space, XTestKeyboard::enter})
        keyboard.tap(key);
    show("A fence");  // which has the focus only once the keys before it have arrived
    EXPECT_THAT(answers, testing::IsEmpty());
    clock.advance(std::chrono::seconds(1));
    keyboard.tap(XTestKeyboard::escape);
    EXPECT_TRUE(processUntil([&] { return !answers.empty(); }));
    EXPECT_THAT(answers, testing::ElementsAre(1u));
    qDeleteAll(QApplication::topLevelWidgets());
}

}  // namespace
}  // namespace nulo
