#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include <QApplication>
#include <QPushButton>
#include <QWindow>
#include <optional>

#include "fakes/FakeMainQueue.h"
#include "platform/Backends.h"
#include "rig/display/VirtualDisplay.h"
#include "rig/display/XTestKeyboard.h"
#include "rig/process/FakeClock.h"
#include "rig/process/WaitUntil.h"
#include "support/KeyLoggingWindow.h"
#include "support/XcbReply.h"
#include "ui/alerts/Alert.h"
#include "ui/overlay/WaveformWindow.h"

namespace nulo {
namespace {

/// A private X server with two monitors and a window manager, and another program's window that
/// has the focus.
class OverlayFocusTest : public testing::Test {
  protected:
    OverlayFocusTest() {
        EXPECT_EQ(std::system("xrandr --setmonitor left 640/160x800/200+0+0 screen && "
                              "xrandr --setmonitor right 640/160x800/200+640+0 none"),
                  0);
        client.emplace();
        qputenv("QT_QPA_PLATFORM", "xcb");
        application.emplace(argumentCount, arguments);
        placement = makeX11OverlayPlacement();
    }
    ~OverlayFocusTest() override { xcb_disconnect(connection); }

    /// The highest window under the pointer that takes clicks.
    xcb_window_t windowAt(int x, int y) {
        keyboard.movePointer(x, y);
        return owned(xcb_query_pointer_reply(connection, xcb_query_pointer(connection, root),
                                             nullptr))
            ->child;
    }
    void moveClient(int x) {
        const std::uint32_t values[] = {std::uint32_t(x), 100};
        xcb_configure_window(connection, client->window(),
                             XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, values);
        xcb_flush(connection);
    }
    void setBar(const std::string& strut) {
        const std::string id = std::to_string(client->window());
        ASSERT_EQ(std::system(("xprop -id " + id +
                               " -f _NET_WM_STRUT_PARTIAL 32c -set "
                               "_NET_WM_STRUT_PARTIAL '" +
                               strut + "'")
                                  .c_str()),
                  0);
    }
    template <typename Condition>
    bool processUntil(Condition condition) {
        return waitUntil([&] {
            QCoreApplication::processEvents();
            return condition();
        });
    }

    VirtualDisplay server{VirtualDisplay::WindowManager::openbox, "1280x800x24"};
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
    EXPECT_TRUE(processUntil([&] { return placement->visibleFrame() == QRect(640, 0, 640, 800); }));
    setBar("0, 0, 0, 40, 0, 0, 0, 0, 0, 0, 640, 1279");
    EXPECT_EQ(placement->visibleFrame(), QRect(640, 0, 640, 760));
    setBar("700, 0, 30, 0, 0, 799, 0, 0, 600, 700, 0, 0");  // beside the other monitor, over both
    EXPECT_EQ(placement->visibleFrame(), QRect(700, 30, 580, 770));
    moveClient(100);
    EXPECT_TRUE(processUntil([&] { return placement->visibleFrame() == QRect(0, 30, 640, 770); }));
    xcb_set_input_focus(connection, XCB_INPUT_FOCUS_NONE, XCB_NONE, XCB_CURRENT_TIME);
    windowAt(1000, 10);
    EXPECT_TRUE(
        processUntil([&] { return placement->visibleFrame() == QRect(700, 30, 580, 770); }));
}

// An overlay that takes the focus out of the program which the text is meant for, by being shown,
// changed, clicked or dragged; that is covered by that program, or covers it with a shadow's
// margin.
TEST_F(OverlayFocusTest, staysAboveWithoutEverTakingTheFocus) {
    const auto composited = owned(xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, 13, "_NET_WM_CM_S0"), nullptr));
    xcb_set_selection_owner(connection, client->window(), composited->atom, XCB_CURRENT_TIME);
    xcb_flush(connection);
    ASSERT_TRUE(processUntil([&] { return placement->isComposited(); }));
    Published<std::vector<float>> levels;
    WaveformWindow overlay(queue, clock, *placement);
    overlay.show(levels);
    ASSERT_EQ(overlay.window()->frame(), QRect(170, 660, 300, 60));
    const xcb_window_t window = xcb_window_t(overlay.window()->winId());
    ASSERT_TRUE(processUntil([&] { return windowAt(171, 690) == window; }));
    EXPECT_NE(windowAt(168, 690), window);
    EXPECT_NE(windowAt(171, 658), window);
    levels.set({0.5f});
    overlay.showTranscribing();
    overlay.showStreaming("");
    overlay.appendStreamingText("un\ndeux\ntrois\nquatre\ncinq\nsix\nsept\nhuit\nneuf\ndix\nonze");
    queue.advance(MainQueue::Delay(0.3));
    EXPECT_TRUE(processUntil([&] { return windowAt(121, 601) == window; }));
    EXPECT_EQ(windowAt(519, 799), window);

    keyboard.movePointer(320, 790);
    keyboard.button(true);
    keyboard.movePointer(280, 690);
    EXPECT_TRUE(
        processUntil([&] { return overlay.window()->frame() == QRect(80, 500, 400, 200); }));
    keyboard.button(false);
    keyboard.tap(XTestKeyboard::a);
    keyboard.tap(XTestKeyboard::f12);
    EXPECT_EQ(client->keysUntil(XTestKeyboard::f12), "+38 -38");
    EXPECT_TRUE(processUntil([&] { return windowAt(81, 690) == window; }));
}

// What is typed into another program answers an alert that comes up in between.
TEST_F(OverlayFocusTest, typingAnswersNoAlert) {
    const Alerts alerts(clock, [&] { return placement->visibleFrame(); });
    std::vector<std::size_t> answers;
    const auto show = [&] {
        return alerts.show({.message = "?", .buttons = {"Install", "Later"}},
                           [&](std::size_t button) { answers.push_back(button); });
    };
    keyboard.press(XTestKeyboard::space);
    const QPointer<QWidget> alert = show();
    ASSERT_TRUE(processUntil([&] { return alert->isActiveWindow(); }));
    struct Releases : QObject {
        int count = 0;
        bool eventFilter(QObject*, QEvent* event) override {
            count += event->type() == QEvent::KeyRelease &&
                     !static_cast<QKeyEvent*>(event)->isAutoRepeat();
            return false;
        }
    } releases;
    alert->windowHandle()->installEventFilter(&releases);
    clock.advance(std::chrono::seconds(2));
    keyboard.release(XTestKeyboard::space);
    for (const auto key : {XTestKeyboard::a, XTestKeyboard::space, XTestKeyboard::enter})
        keyboard.tap(key);
    EXPECT_TRUE(processUntil([&] { return releases.count == 4; }));
    EXPECT_THAT(answers, testing::IsEmpty());
    clock.advance(std::chrono::seconds(1));
    keyboard.tap(XTestKeyboard::enter);
    EXPECT_TRUE(processUntil([&] { return answers.size() == 1; }));

    const QPointer<QWidget> clicked = show();
    auto* const later = clicked->findChildren<QPushButton*>()[1];
    ASSERT_TRUE(processUntil([&] { return clicked->isActiveWindow(); }));
    const QPoint place = later->mapToGlobal(later->rect().center());
    keyboard.movePointer(place.x(), place.y());
    keyboard.button(true);
    keyboard.button(false);
    EXPECT_TRUE(processUntil([&] { return answers.size() == 2; }));
    EXPECT_THAT(answers, testing::ElementsAre(0u, 1u));
}

}  // namespace
}  // namespace nulo
