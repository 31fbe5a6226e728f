#include <gtest/gtest.h>

#include <QApplication>
#include <csignal>

#include "platform/Backends.h"
#include "platform/x11/Xcb.h"
#include "rig/display/VirtualDisplay.h"
#include "rig/display/XTestKeyboard.h"
#include "support/TrayPanel.h"
#include "ui/tray/StatusIcons.h"
#include "ui/tray/TrayItem.h"
#include "ui/tray/XEmbedTrayIcon.h"

namespace nulo {
namespace {

/// Where the icon's window stands inside a tray's; empty while it is not embedded.
QRect iconFrame(xcb_connection_t* server) {
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(server)).data->root;
    for (const QWidget* widget : QApplication::topLevelWidgets()) {
        if (!widget->inherits("QSystemTrayIconSys"))
            continue;
        const auto window = static_cast<xcb_window_t>(widget->winId());
        const auto tree = NULO_XCB(xcb_query_tree, server, window);
        const auto place = NULO_XCB(xcb_translate_coordinates, server, window, root, 0, 0);
        if (tree && place && tree->parent != root)
            return {{place->dst_x, place->dst_y}, widget->size()};
    }
    return {};
}

QMenu* openMenu() {
    return qobject_cast<QMenu*>(QApplication::activePopupWidget());
}

// No icon where no panel is, two where one is; an icon lost with its tray; a menu that stays shut.
TEST(XEmbedTrayTest, standsInForThePanelAsLongAsThereIsNone) {
    const VirtualDisplay display;
    testBus().start();
    qputenv("QT_QPA_PLATFORM", "xcb");
    NoArguments arguments;
    const QApplication application(arguments.count, arguments.list);
    const XcbConnection server(xcb_connect(nullptr, nullptr));
    const auto isEmbedded = [&] { return !iconFrame(server.get()).isEmpty(); };
    int ran = 0;
    TrayItem item(makeStatusNotifierItem(), [] { return std::make_unique<XEmbedTrayIcon>(); });
    item.onAboutToShow = [&] { item.setMenu({{MenuEntry::Kind::action, "Run", [&] { ++ran; }}}); };
    item.setIcon(idleIcon());
    const std::vector<std::string> trayer{"trayer", "--edge", "top", "--align", "right"};
    {
        ChildProcess tray(trayer);  // after the program
        ASSERT_TRUE(processUntil(isEmbedded));
        tray.signal(SIGKILL);
        EXPECT_TRUE(processUntil([&] { return !item.isShown(); }));
    }
    const ChildProcess tray(trayer);
    ASSERT_TRUE(processUntil(isEmbedded));
    XTestKeyboard mouse;
    const auto click = [&](QPoint at) {
        mouse.movePointer(at.x(), at.y());
        for (const bool down : {true, false})
            mouse.button(down);
    };
    // Again as long as the tray, which is still starting, moves the icon away meanwhile.
    for (int attempt = 0; attempt < 5 && !openMenu(); ++attempt) {
        click(iconFrame(server.get()).center());
        processUntil([] { return openMenu() != nullptr; }, std::chrono::seconds(2));
    }
    ASSERT_TRUE(openMenu());
    click(openMenu()->mapToGlobal(openMenu()->rect().center()));
    EXPECT_TRUE(processUntil([&] { return ran == 1; }));
    {
        const Panel panel;
        EXPECT_TRUE(processUntil([&] { return panel.isRegistered() && !isEmbedded(); }));
        EXPECT_TRUE(item.isShown());
    }
    EXPECT_TRUE(processUntil(isEmbedded));
    testBus().stop();
}

}  // namespace
}  // namespace nulo
