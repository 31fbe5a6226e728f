#include <gtest/gtest.h>
#include <xcb/xcb.h>
#include <xcb/xtest.h>

#include <QApplication>
#include <QScreen>
#include <cstdlib>
#include <map>
#include <memory>

#include "fakes/FakeMainQueue.h"
#include "rig/display/VirtualDisplay.h"
#include "rig/process/FakeClock.h"
#include "rig/process/WaitUntil.h"
#include "support/XcbReply.h"
#include "ui/overlay/WaveformWindow.h"

namespace nulo {
namespace {

/// A private X server with a window manager, and another program's window that has the focus.
class OverlayFocusTest : public testing::Test {
  protected:
    OverlayFocusTest() {
        m_connection = xcb_connect(m_server.display().c_str(), nullptr);
        m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
        m_client = xcb_generate_id(m_connection);
        const uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_FOCUS_CHANGE |
                                XCB_EVENT_MASK_KEY_PRESS;
        xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_client, m_root, 0, 0, 1000, 700, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK,
                          &events);
        xcb_map_window(m_connection, m_client);
        EXPECT_TRUE(waitUntil([&] {  // refused as long as the manager is not done with the window
            xcb_set_input_focus(m_connection, XCB_INPUT_FOCUS_POINTER_ROOT, m_client,
                                XCB_CURRENT_TIME);
            return countEvents(XCB_FOCUS_IN) > 0 && clientHasFocus();
        }));
    }
    ~OverlayFocusTest() override { xcb_disconnect(m_connection); }

    /// Of the client's events so far.
    int countEvents(uint8_t type) {
        xcb_flush(m_connection);
        while (const auto event = owned(xcb_poll_for_event(m_connection)))
            ++m_eventCounts[event->response_type & 0x7f];
        return m_eventCounts[type];
    }

    bool clientHasFocus() {
        const auto focus = owned(
            xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
        return focus->focus == m_client;
    }

    QRect frameOf(xcb_window_t window) {
        const auto frame = owned(
            xcb_get_geometry_reply(m_connection, xcb_get_geometry(m_connection, window), nullptr));
        return frame ? QRect(frame->x, frame->y, frame->width, frame->height) : QRect();
    }

    /// The highest window that is mapped.
    xcb_window_t topWindow() {
        const auto tree = owned(
            xcb_query_tree_reply(m_connection, xcb_query_tree(m_connection, m_root), nullptr));
        const xcb_window_t* const children = xcb_query_tree_children(tree.get());
        for (int i = xcb_query_tree_children_length(tree.get()) - 1; i >= 0; --i) {
            const auto attributes = owned(xcb_get_window_attributes_reply(
                m_connection, xcb_get_window_attributes(m_connection, children[i]), nullptr));
            if (attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE)
                return children[i];
        }
        return XCB_NONE;
    }

    void fakeInput(uint8_t type, uint8_t detail, QPoint position = {}) {
        xcb_test_fake_input(m_connection, type, detail, XCB_CURRENT_TIME, m_root, position.x(),
                            position.y(), 0);
        xcb_flush(m_connection);
    }

    template <typename Condition>
    bool processUntil(Condition condition) {
        return waitUntil([&] {
            QCoreApplication::processEvents();
            return condition();
        });
    }

    VirtualDisplay m_server{VirtualDisplay::WindowManager::openbox, "1280x800x24"};
    xcb_connection_t* m_connection = nullptr;
    xcb_window_t m_root = XCB_NONE;
    xcb_window_t m_client = XCB_NONE;
    std::map<uint8_t, int> m_eventCounts;
};

// An overlay that takes the focus out of the program which the text is meant for, by being shown,
// changed, clicked or dragged; that is covered by that program or stands elsewhere.
TEST_F(OverlayFocusTest, staysAboveWithoutEverTakingTheFocus) {
    qputenv("QT_QPA_PLATFORM", "xcb");
    char name[] = "overlay";
    char* arguments[] = {name, nullptr};
    int argumentCount = 1;
    const QApplication application(argumentCount, arguments);
    FakeClock clock;
    FakeMainQueue queue(&clock);
    Published<std::vector<float>> levels;
    WaveformWindow overlay(queue, clock);

    const int focusOuts = countEvents(XCB_FOCUS_OUT);
    overlay.show(levels);
    ASSERT_TRUE(processUntil([&] { return topWindow() == overlay.window()->winId(); }));
    const xcb_window_t window = topWindow();
    EXPECT_EQ(frameOf(window), QRect(490, 660, 300, 60));
    levels.set({0.5f});
    overlay.showTranscribing();
    overlay.showStreaming("");
    overlay.appendStreamingText("un\ndeux\ntrois\nquatre\ncinq\nsix\nsept\nhuit\nneuf\ndix\nonze");
    EXPECT_TRUE(processUntil([&] { return frameOf(window) == QRect(440, 600, 400, 200); }));

    fakeInput(XCB_MOTION_NOTIFY, 0, {640, 790});
    fakeInput(XCB_BUTTON_PRESS, 1);
    fakeInput(XCB_MOTION_NOTIFY, 0, {600, 690});
    EXPECT_TRUE(processUntil([&] { return frameOf(window) == QRect(400, 500, 400, 200); }));
    fakeInput(XCB_BUTTON_RELEASE, 1);
    fakeInput(XCB_KEY_PRESS, 38);
    fakeInput(XCB_KEY_RELEASE, 38);
    EXPECT_TRUE(processUntil([&] { return countEvents(XCB_KEY_PRESS) == 1; }));
    EXPECT_EQ(topWindow(), window);

    overlay.hide();
    queue.advance(MainQueue::Delay(0.2));
    EXPECT_TRUE(processUntil([&] { return topWindow() != window; }));
    EXPECT_TRUE(clientHasFocus());
    EXPECT_EQ(countEvents(XCB_FOCUS_OUT), focusOuts);
}

}  // namespace
}  // namespace nulo
