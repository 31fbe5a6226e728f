#include <gmock/gmock.h>

#include <QApplication>
#include <QFileInfo>
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

using testing::ElementsAre;
using Kind = MenuEntry::Kind;

class StatusNotifierItemTest : public testing::Test {
  protected:
    StatusNotifierItemTest() {
        testBus().start();
        panel.emplace();
        makeItem();
    }
    ~StatusNotifierItemTest() override {
        item.reset();
        panel.reset();
        testBus().stop();
    }
    void makeItem() {
        item = makeStatusNotifierItem();
        item->onShownChanged = [this] { shownChanges += item->isShown() ? "yes " : "no "; };
    }
    bool hasAnnounced(const std::string& changes) {
        return processUntil([&] { return shownChanges == changes; });
    }
    bool waitForPanel() {
        return processUntil(
            [&] { return shownChanges.ends_with("yes ") && panel->isRegistered(); });
    }
    MenuEntry entry(const std::string& title, Kind kind = Kind::action, bool checked = false) {
        return {kind, title, [this, title] { ran.push_back(title); }, checked, "Ctrl+,"};
    }

    QtProgram<> program;
    std::optional<Panel> panel;
    std::unique_ptr<StatusItem> item;
    std::string shownChanges;
    std::vector<std::string> ran;
};

// A row whose kind a panel does not get to see; text that ends the connection or arrives cut; a
// call that ends the program.
TEST_F(StatusNotifierItemTest, aPanelReadsTheMenu) {
    item->setMenu({entry("warn", Kind::warning),
                   {Kind::header, "head"},
                   {},
                   entry("snake_case & co \u05E9\u05DC", Kind::choice, true),
                   entry(std::string("nul\0cut \xC3", 9), Kind::choice)});
    ASSERT_TRUE(waitForPanel());
    const QList<Panel::Row> rows = panel->rows();
    ASSERT_EQ(rows.size(), 5);
    EXPECT_EQ(rows[0].properties["disposition"], "warning");
    EXPECT_EQ(rows[1].properties, QVariantMap({{"label", "head"}, {"enabled", false}}));
    EXPECT_EQ(rows[2].properties, QVariantMap({{"type", "separator"}}));
    EXPECT_EQ(rows[3].label(), "snake__case & co \u05E9\u05DC");
    EXPECT_EQ(rows[3].properties["toggle-type"], "radio");
    EXPECT_TRUE(rows[3].isChecked() && !rows[4].isChecked());
    EXPECT_EQ(rows[4].label(), "nulcut \uFFFD");
    EXPECT_EQ(qdbus_cast<dbusmenu::Shortcut>(rows[0].properties["shortcut"].value<QDBusArgument>()),
              dbusmenu::Shortcut({{"Control", "comma"}}));
    EXPECT_EQ(panel->rows({"label"})[0].properties.size(), 1);
    for (const auto& [method, bad] : std::vector<std::pair<QString, QVariantList>>{
             {"GetLayout", {99, -1, QStringList()}},
             {"GetLayout", {"0", -1, QStringList()}},
             {"GetProperty", {rows[0].id, "toggle-state"}},
             {"Event", {rows[0].id, "clicked"}},
             {"EventGroup", {QStringList("x")}},
             {"AboutToShow", {99}},
             {"Activate", {0, 0}}})
        EXPECT_EQ(panel->menuCall(method, bad).type(), QDBusMessage::ErrorMessage)
            << method.toStdString();
}

// A stale menu; a click on what a panel still shows of an older one that runs something else.
TEST_F(StatusNotifierItemTest, idsOfAnOlderMenuDoNothing) {
    item->setMenu({entry("a", Kind::choice, true), entry("b", Kind::choice)});
    item->onAboutToShow = [&] {
        item->setMenu({entry("a", Kind::choice), entry("b", Kind::choice, true)});
    };
    ASSERT_TRUE(waitForPanel());
    const int a = panel->row("a").id;
    EXPECT_FALSE(panel->open()) << "marks come as changed properties";
    EXPECT_TRUE(panel->row("b").isChecked());
    EXPECT_EQ(panel->row("a").id, a);
    item->onAboutToShow = [&] { item->setMenu({entry("delete"), entry("c")}); };
    EXPECT_TRUE(panel->open());
    for (const int older : {a, a + 1})
        EXPECT_EQ(panel->click(older), "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(panel->click(panel->row("c").id), "");
    EXPECT_TRUE(processUntil([&] { return !ran.empty(); }));
    EXPECT_THAT(ran, ElementsAre("c"));
    // An action that takes its own menu away, with the item.
    item->setMenu({{Kind::action, "end", [this] { item.reset(); }}});
    EXPECT_EQ(panel->click(panel->row("end").id), "");
    EXPECT_TRUE(processUntil([&] { return !item; }));
}

// Pictures that are missing at a size or in the machine's byte order; a name that no panel finds.
TEST_F(StatusNotifierItemTest, aPanelReadsTheIcon) {
    item->setIcon(recordingIcon());
    ASSERT_TRUE(waitForPanel());
    EXPECT_EQ(panel->itemProperty("Status"), "Active");
    const QString name = panel->itemProperty("IconName").toString();
    EXPECT_EQ(name, "org.nulo.Nulo-recording-symbolic");
    EXPECT_TRUE(QFileInfo::exists(panel->itemProperty("IconThemePath").toString() +
                                  "/hicolor/symbolic/apps/" + name + ".svg"));
    const auto argument = panel->itemProperty("IconPixmap").value<QDBusArgument>();
    QList<int> widths;
    QByteArray largest;
    argument.beginArray();
    while (!argument.atEnd()) {
        int height = 0;
        argument.beginStructure();
        argument >> widths.emplace_back() >> height >> largest;
        argument.endStructure();
        EXPECT_EQ(largest.size(), widths.back() * height * 4);
    }
    argument.endArray();
    EXPECT_EQ(widths, QList<int>({16, 18, 22, 24, 32, 36, 44, 48, 64, 96, 128}));
    EXPECT_EQ(largest.mid((64 * 128 + 64) * 4, 4), QByteArray("\xff\xff\x3b\x30"));
    item->setIcon(warningIcon());
    EXPECT_EQ(panel->itemProperty("Status"), "NeedsAttention");
    EXPECT_EQ(panel->itemProperty("AttentionIconName"), "org.nulo.Nulo-warning-symbolic");
}

// An item that stays away after the panel crashed, came late, or has a watcher without a host; a
// life without a bus that crashes, blocks, or never says that nothing is shown.
TEST_F(StatusNotifierItemTest, comesBackWithThePanel) {
    item->setMenu({entry("a")});
    ASSERT_TRUE(waitForPanel());
    panel.reset();
    EXPECT_TRUE(hasAnnounced("yes no "));
    panel.emplace(false);
    EXPECT_TRUE(processUntil([&] { return panel->hostQuestions > 0; }));
    EXPECT_NE(panel->row("a").id, -1);  // by then the item has the answer
    EXPECT_FALSE(item->isShown());
    panel->hostAppears();
    EXPECT_TRUE(waitForPanel());
    testBus().stop();
    EXPECT_TRUE(hasAnnounced("yes no yes no "));
    panel.reset();
    makeItem();
    EXPECT_TRUE(hasAnnounced("yes no yes no no "));
}

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
    const QtProgram<QApplication> program;
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
