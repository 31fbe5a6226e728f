// The tray item in a panel that people use.

#include <gtest/gtest.h>

#include <memory>

#include "rig/desktop/DesktopPanel.h"
#include "rig/desktop/DesktopSession.h"

namespace nulo {
namespace {

TEST(PanelTest, showsTheIconAgainAfterACrashAndTheMenuQuits) {
    DesktopSession desktop;
    auto panel = std::make_unique<DesktopPanel>(desktop);
    desktop.startNulo();
    EXPECT_TRUE(panel->waitForIcon(DesktopPanel::Icon::idle));
    panel.reset();
    panel = std::make_unique<DesktopPanel>(desktop);
    EXPECT_TRUE(panel->waitForIcon(DesktopPanel::Icon::idle));

    desktop.pressChord();
    EXPECT_TRUE(panel->waitForIcon(DesktopPanel::Icon::recording));
    desktop.releaseChord();
    EXPECT_TRUE(panel->waitForIcon(DesktopPanel::Icon::idle));

    ASSERT_FALSE(panel->openMenu().isEmpty());
    desktop.keyboard().tap(XTestKeyboard::up);  // to the last entry
    desktop.keyboard().tap(XTestKeyboard::enter);
    EXPECT_EQ(desktop.nulo().wait(std::chrono::seconds(10)), 0);
    EXPECT_TRUE(panel->waitForIcon(DesktopPanel::Icon::none));
}

}  // namespace
}  // namespace nulo
