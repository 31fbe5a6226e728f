#include "ui/tray/TrayItem.h"

#include <gtest/gtest.h>

#include <QTest>

#include "fakes/FakeStatusItem.h"
#include "ui/MenuWidget.h"
#include "ui/tray/StatusIcons.h"

namespace nulo {
namespace {

using Kind = MenuEntry::Kind;

// Two icons at once, none at all, an empty late one, or one made before it is known to be needed.
TEST(TrayItem, showsTheFallbackExactlyWhileThePreferredIsNotShown) {
    auto* const preferred = new FakeStatusItem;
    FakeStatusItem* fallback = nullptr;
    int made = 0;
    TrayItem item(std::unique_ptr<StatusItem>(preferred), [&] {
        ++made;
        return std::unique_ptr<StatusItem>(fallback = new FakeStatusItem);
    });
    int changes = 0;
    item.onShownChanged = [&] { ++changes; };
    item.setIcon(warningIcon());
    item.setMenu({{Kind::action, "a"}});
    EXPECT_EQ(made, 0);
    preferred->changeShown(false);
    preferred->changeShown(false);
    ASSERT_EQ(made, 1);
    EXPECT_EQ(titles(fallback->menu), std::vector<std::string>{"a"});
    EXPECT_TRUE(fallback->icon.needsAttention);
    EXPECT_FALSE(item.isShown());
    fallback->shown = true;
    EXPECT_TRUE(item.isShown());
    preferred->changeShown(true);
    item.setMenu({{Kind::action, "c"}});  // would touch a fallback left behind
    preferred->changeShown(false);
    EXPECT_EQ(made, 2);
    EXPECT_EQ(titles(fallback->menu), std::vector<std::string>{"c"});
    EXPECT_EQ(changes, 4);
}

// Mnemonics out of a user's words, two marks, entries beyond the screen's edge; a shortcut that is
// shown and does nothing; an action that runs inside the menu that it replaces.
TEST(MenuWidget, showsEntriesAsTheyAre) {
    MenuWidget menu;
    int ran = 0;
    const MenuEntry quit{Kind::action, "Quit", [&] { menu.fill({}), ++ran; }, false, "Ctrl+Q"};
    menu.fill({{Kind::choice, "A & B_", [] {}, true}, {Kind::choice, "C", [] {}}, quit});
    EXPECT_EQ(menu.actions()[0]->text(), "A && B_");
    menu.actions()[1]->trigger();
    EXPECT_FALSE(menu.actions()[0]->isChecked());
    menu.popup({0, 0});
    QTest::keyClick(&menu, Qt::Key_Q, Qt::ControlModifier);
    EXPECT_EQ(ran, 0);
    QCoreApplication::processEvents();
    EXPECT_EQ(ran, 1);
    menu.fill(Menu(500, {Kind::action, "Mode"}));
    menu.popup({0, 0});
    EXPECT_LE(menu.height(), menu.screen()->geometry().height());
    menu.close();
}

}  // namespace
}  // namespace nulo
