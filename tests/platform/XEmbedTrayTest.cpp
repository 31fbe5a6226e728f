#include <gtest/gtest.h>
#include <xcb/xcb.h>
#include <xcb/xtest.h>

#include <QApplication>
#include <QCursor>
#include <csignal>
#include <cstdlib>
#include <optional>

#include "platform/Backends.h"
#include "platform/TrayDesktop.h"
#include "rig/display/VirtualDisplay.h"
#include "support/TrayPanel.h"
#include "support/XcbReply.h"
#include "ui/tray/StatusIcons.h"
#include "ui/tray/TrayItem.h"
#include "ui/tray/XEmbedTrayIcon.h"

namespace nulo {
namespace {

/// A desktop whose tray knows XEmbed only, and a bus on which a panel may appear.
class XEmbedTrayTest : public testing::Test {
  protected:
    XEmbedTrayTest() {
        testBus().start();
        qputenv("QT_QPA_PLATFORM", "xcb");
        m_application.emplace(m_argumentCount, m_arguments);
        m_connection = xcb_connect(m_server.display().c_str(), nullptr);
        m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
    }
    ~XEmbedTrayTest() override {
        m_application.reset();
        xcb_disconnect(m_connection);
        testBus().stop();
    }

    void startTray() {
        m_tray.emplace(std::vector<std::string>{"trayer", "--edge", "top", "--align", "right",
                                                "--widthtype", "request", "--height", "24"});
    }
    void killTray() {
        m_tray->signal(SIGKILL);
        m_tray.reset();
    }

    /// Where the icon's window stands inside a tray's; empty while it is not embedded.
    QRect iconFrame() {
        for (const QWidget* widget : QApplication::topLevelWidgets())
            if (widget->inherits("QSystemTrayIconSys")) {
                const auto window = static_cast<xcb_window_t>(widget->winId());
                const auto tree = owned(xcb_query_tree_reply(
                    m_connection, xcb_query_tree(m_connection, window), nullptr));
                const auto attributes = owned(xcb_get_window_attributes_reply(
                    m_connection, xcb_get_window_attributes(m_connection, window), nullptr));
                const auto position = owned(xcb_translate_coordinates_reply(
                    m_connection, xcb_translate_coordinates(m_connection, window, m_root, 0, 0),
                    nullptr));
                const bool embedded = tree && tree->parent != m_root && attributes &&
                                      attributes->map_state == XCB_MAP_STATE_VIEWABLE;
                return embedded ? QRect({position->dst_x, position->dst_y}, widget->size())
                                : QRect();
            }
        return {};
    }
    bool isEmbedded() {
        return processUntil([&] { return !iconFrame().isEmpty(); });
    }

    void click(QPoint at, uint8_t button) {
        xcb_test_fake_input(m_connection, XCB_MOTION_NOTIFY, 0, 0, m_root, at.x(), at.y(), 0);
        xcb_test_fake_input(m_connection, XCB_BUTTON_PRESS, button, 0, m_root, 0, 0, 0);
        xcb_test_fake_input(m_connection, XCB_BUTTON_RELEASE, button, 0, m_root, 0, 0, 0);
        xcb_flush(m_connection);
    }
    /// Clicks again as long as the tray, which is still starting, moves the icon away meanwhile.
    bool opensMenu(uint8_t button) {
        for (int attempt = 0; attempt < 5 && !openMenu(); ++attempt) {
            click(iconFrame().center(), button);
            processUntil([] { return openMenu() != nullptr; }, std::chrono::seconds(2));
        }
        return openMenu() != nullptr;
    }
    static QMenu* openMenu() { return qobject_cast<QMenu*>(QApplication::activePopupWidget()); }

    VirtualDisplay m_server;
    int m_argumentCount = 1;
    char m_name[5] = "tray";
    char* m_arguments[2] = {m_name, nullptr};
    std::optional<QApplication> m_application;
    xcb_connection_t* m_connection = nullptr;
    xcb_window_t m_root = XCB_NONE;
    std::optional<ChildProcess> m_tray;
};

// No icon where no panel is, two where one is; an icon lost with its tray; a dead mouse button.
TEST_F(XEmbedTrayTest, standsInForThePanelAsLongAsThereIsNone) {
    int ran = 0;
    int openings = 0;
    TrayItem item(makeStatusNotifierItem(), [] { return std::make_unique<XEmbedTrayIcon>(); });
    item.onAboutToShow = [&] {
        ++openings;
        item.setMenu({{MenuEntry::Kind::action, "Run", [&] { ++ran; }}});
    };
    int changes = 0;
    item.onShownChanged = [&] { ++changes; };
    item.setIcon(idleIcon());
    item.setMenu({{MenuEntry::Kind::action, "old"}});
    ASSERT_TRUE(processUntil([&] { return changes > 0; }));
    EXPECT_FALSE(item.isShown());
    startTray();  // comes later than the program
    ASSERT_TRUE(isEmbedded());
    EXPECT_TRUE(item.isShown());

    for (const uint8_t button : {1, 3}) {
        ASSERT_TRUE(opensMenu(button)) << int(button);
        ASSERT_EQ(openMenu()->actions().size(), 1);
        EXPECT_EQ(openMenu()->actions()[0]->text(), "Run");
        click(openMenu()->mapToGlobal(openMenu()->rect().center()), 1);
        EXPECT_TRUE(processUntil([] { return openMenu() == nullptr; }));
    }
    EXPECT_TRUE(processUntil([&] { return ran == 2; }));
    EXPECT_GE(openings, 2);

    killTray();
    EXPECT_TRUE(processUntil([&] { return !item.isShown(); }));
    startTray();
    ASSERT_TRUE(isEmbedded());

    for (int i = 0; i < 2; ++i) {
        {
            Panel panel(testBus().address());
            ASSERT_TRUE(
                processUntil([&] { return panel.isRegistered() && iconFrame().isEmpty(); }));
            EXPECT_TRUE(item.isShown());
            EXPECT_EQ(panel.items().size(), 1);
        }
        ASSERT_TRUE(isEmbedded());
    }
}

}  // namespace
}  // namespace nulo
