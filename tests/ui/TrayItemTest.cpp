#include "ui/tray/TrayItem.h"

#include <gtest/gtest.h>

#include <QTest>

#include <QApplication>
#include <QImage>
#include <QScreen>

#include "fakes/FakeStatusItem.h"
#include "ui/tray/MenuWidget.h"
#include "ui/tray/StatusIcons.h"

namespace nulo {
namespace {

// Two icons at once, none at all, an empty late one, or one made before it is known to be needed.
TEST(TrayItem, showsTheFallbackExactlyWhileThePreferredIsNotShown) {
    auto owned = std::make_unique<FakeStatusItem>();
    FakeStatusItem& preferred = *owned;
    FakeStatusItem* fallback = nullptr;
    int made = 0;
    TrayItem item(std::move(owned), [&] {
        ++made;
        auto fake = std::make_unique<FakeStatusItem>();
        fallback = fake.get();
        return fake;
    });
    int changes = 0;
    int openings = 0;
    item.onShownChanged = [&] { ++changes; };
    item.onAboutToShow = [&] { ++openings; };
    item.setIcon(idleIcon());
    item.setMenu({{MenuEntry::Kind::action, "a"}});
    EXPECT_EQ(made, 0);
    EXPECT_FALSE(item.isShown());

    preferred.changeShown(false);
    ASSERT_EQ(made, 1);
    EXPECT_EQ(titles(fallback->menu), std::vector<std::string>{"a"});
    EXPECT_EQ(fallback->icon.description, "Nulo");
    EXPECT_FALSE(item.isShown());
    fallback->shown = true;
    EXPECT_TRUE(item.isShown());
    item.setMenu({{MenuEntry::Kind::action, "b"}});
    item.setIcon(warningIcon());
    EXPECT_EQ(titles(fallback->menu), titles(preferred.menu));
    EXPECT_TRUE(fallback->icon.needsAttention);
    EXPECT_TRUE(preferred.icon.needsAttention);
    fallback->onAboutToShow();
    preferred.changeShown(false);
    EXPECT_EQ(made, 1);

    preferred.changeShown(true);
    EXPECT_TRUE(item.isShown());
    item.setMenu({{MenuEntry::Kind::action, "c"}});  // would touch a fallback left behind
    preferred.onAboutToShow();
    EXPECT_EQ(openings, 2);
    EXPECT_EQ(changes, 3);
    preferred.changeShown(false);
    EXPECT_EQ(made, 2);
    EXPECT_EQ(titles(fallback->menu), std::vector<std::string>{"c"});
}

// Entries out of reach beyond the screen's edge.
TEST(MenuWidget, scrollsWhenItIsHigherThanTheScreen) {
    MenuWidget widget;
    widget.fill(Menu(500, {MenuEntry::Kind::action, "Mode"}));
    widget.popup({0, 0});
    EXPECT_LE(widget.height(), widget.screen()->geometry().height());
    EXPECT_LT(widget.width(), 300);
}

// Mnemonics and columns out of a user's words, a menu wider than the screen, two marks, an action
// that runs inside the menu that it replaces.
TEST(MenuWidget, showsEntriesAsTheyAre) {
    using Kind = MenuEntry::Kind;
    MenuWidget widget;
    int ran = 0;
    Menu menu{{Kind::warning, "Warn", [] {}},
              {Kind::header, "Mode"},
              {Kind::choice, "A & B_", [] {}, true},
              {Kind::choice, "C", [] {}},
              {},
              {Kind::action, "Quit", nullptr, false, "Ctrl+Q"}};
    menu.back().action = [&] {
        ++ran;
        widget.fill({});
    };
    widget.fill({{Kind::action, "old"}});
    widget.fill(menu);
    const QList<QAction*> rows = widget.actions();
    ASSERT_EQ(rows.size(), 6);
    EXPECT_GT(rows[0]->font().weight(), rows[1]->font().weight());
    EXPECT_FALSE(rows[1]->isEnabled());
    EXPECT_EQ(rows[2]->text(), "A && B_");
    EXPECT_TRUE(rows[2]->isChecked());
    EXPECT_TRUE(rows[4]->isSeparator());
    EXPECT_EQ(rows[5]->shortcut(), QKeySequence("Ctrl+Q"));
    rows[3]->trigger();
    EXPECT_FALSE(rows[2]->isChecked());

    const QImage picture = widget.grab().toImage();
    const auto hasOrange = [&](const QRect& in) {
        for (int y = in.top(); y <= in.bottom(); ++y)
            for (int x = in.left(); x <= in.right(); ++x)
                if (const QColor c = picture.pixelColor(x, y); c.red() > c.blue() + 100)
                    return true;
        return false;
    };
    EXPECT_TRUE(hasOrange(widget.actionGeometry(rows[0])));
    EXPECT_FALSE(hasOrange(widget.actionGeometry(rows[5])));

    widget.popup({0, 0});
    QTest::keyClick(&widget, Qt::Key_Q, Qt::ControlModifier);
    EXPECT_FALSE(widget.isVisible());
    EXPECT_EQ(ran, 0);
    QCoreApplication::processEvents();
    EXPECT_EQ(ran, 1);
    EXPECT_TRUE(widget.actions().isEmpty());
}

// A shortcut that is shown and does nothing in the window that has the menu, or does what it did.
TEST(MenuWidget, itsShortcutsWorkInTheWindowOfItsParent) {
    QWidget window;
    MenuWidget widget(&window);
    int ran = 0;
    for (int i = 0; i < 2; ++i)
        widget.fill({{MenuEntry::Kind::action, "Quit", [&ran, i] { ran = i; }, false, "Ctrl+Q"}});
    window.show();
    window.activateWindow();
    QCoreApplication::processEvents();
    QTest::keyClick(window.windowHandle(), Qt::Key_Q, Qt::ControlModifier);
    QCoreApplication::processEvents();
    EXPECT_EQ(ran, 1);
}

}  // namespace
}  // namespace nulo
