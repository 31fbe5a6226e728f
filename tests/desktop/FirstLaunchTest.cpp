// What the program shows by itself, once, and what it leaves behind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <fstream>
#include <sstream>

#include "desktop/ScreenReader.h"
#include "rig/desktop/DesktopSession.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string offer = "Lancer Nulo au demarrage ?";

std::string contentOf(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

class FirstLaunchTest : public testing::Test {
  protected:
    fs::path autostartEntry() const { return m_desktop.home() / ".config/autostart/nulo.desktop"; }

    DesktopSession m_desktop{DesktopSession::Launch::first};
    ScreenReader m_reader{m_desktop.environment(), m_desktop.bus().address()};
};

TEST_F(FirstLaunchTest, offersToStartAtLoginAndDoesSo) {
    m_desktop.startNulo();
    ASSERT_TRUE(m_reader.waitForWindow(offer));
    EXPECT_THAT(m_reader.textsIn(offer),
                Contains("Nulo peut se lancer automatiquement quand vous ouvrez votre "
                         "session."));
    EXPECT_THAT(m_reader.buttonsIn(offer), ElementsAre("Oui, activer", "Non merci"));
    EXPECT_TRUE(m_reader.press(offer, "Oui, activer"));
    EXPECT_TRUE(m_desktop.waitForPrinted("Login item registered."));
    EXPECT_THAT(contentOf(autostartEntry()), HasSubstr("Exec="));
    EXPECT_EQ(m_desktop.stopNulo(), 0);
}

TEST_F(FirstLaunchTest, takesNoForAnAnswerForGood) {
    m_desktop.startNulo();
    ASSERT_TRUE(m_reader.waitForWindow(offer));
    EXPECT_TRUE(m_reader.press(offer, "Non merci"));
    EXPECT_TRUE(m_reader.waitForNoWindow());
    EXPECT_EQ(m_desktop.stopNulo(), 0);
    EXPECT_FALSE(fs::exists(autostartEntry()));
    EXPECT_THAT(contentOf(m_desktop.home() / ".config/nulo/defaults.ini"),
                HasSubstr("nuloHasLaunched=true"));

    m_desktop.startNulo();
    // The offer would be due at the same second; the reader is answered after both.
    EXPECT_TRUE(m_desktop.waitForPrinted("Connection warm-up sent"));
    EXPECT_THAT(m_reader.windows(), testing::IsEmpty());
    EXPECT_EQ(m_desktop.stopNulo(), 0);
}

}  // namespace
}  // namespace nulo
