// What the program shows by itself, once, and what it leaves behind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "desktop/ScreenReader.h"
#include "rig/desktop/DesktopSession.h"

namespace nulo {
namespace {

TEST(FirstLaunch, offersToStartAtLoginAndDoesSo) {
    const std::string offer = "Lancer Nulo au demarrage ?";
    DesktopSession desktop{DesktopSession::Launch::first};
    const ScreenReader reader{desktop.environment(), desktop.bus().address()};
    desktop.startNulo();
    ASSERT_TRUE(reader.waitForWindow(offer));
    EXPECT_THAT(reader.buttonsIn(offer), testing::ElementsAre("Oui, activer", "Non merci"));
    EXPECT_TRUE(reader.press(offer, "Oui, activer"));
    EXPECT_TRUE(desktop.waitForPrinted("Login item registered."));
    EXPECT_TRUE(exists(desktop.home() / ".config/autostart/nulo.desktop"));
    EXPECT_EQ(desktop.stopNulo(), 0);
}

}  // namespace
}  // namespace nulo
