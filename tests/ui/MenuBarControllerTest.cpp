#include "ui/tray/MenuBarController.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fakes/FakeStatusItem.h"
#include "fakes/TrayProgram.h"
#include "ui/tray/StatusIcons.h"

namespace nulo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class MenuBarControllerTest : public testing::Test {
  protected:
    MenuBarControllerTest() {
        controller.accessibilityGranted = true;
        controller.rebuildMenu();
    }
    std::string printedLast() { return program.printed.lines().back(); }

    FakeStatusItem item;
    TrayProgram program{item};
    MenuBarController& controller = program.controller;
};

// A row that is missing, misplaced, misspelt, of the wrong kind or with the wrong key.
TEST_F(MenuBarControllerTest, hasTheRowsOfItsTable) {
    EXPECT_THAT(titles(item.menu),
                ElementsAre("Mode", "Voice to Text", "Transcription brute", "Commande systeme",
                            "Email", "Francais → Espagnol", "", "Reglages...",
                            "Rechercher une mise a jour...", "", "Quitter"));
    EXPECT_THAT(checkedTitles(item.menu), ElementsAre("Voice to Text"));
    EXPECT_EQ(item.menu[0].kind, MenuEntry::Kind::header);
    EXPECT_EQ(item.menu[5].kind, MenuEntry::Kind::choice);
    EXPECT_EQ(item.menu[6].kind, MenuEntry::Kind::separator);
    EXPECT_EQ(item.menu[7].shortcut, "Ctrl+,");
    EXPECT_EQ(item.menu[8].shortcut, "");
    EXPECT_EQ(item.menu[10].shortcut, "Ctrl+Q");
    for (const std::size_t silent : {0, 6, 9})
        EXPECT_FALSE(item.menu[silent].action);

    controller.accessibilityGranted = false;
    controller.rebuildMenu();
    ASSERT_EQ(item.menu.size(), 14u);
    EXPECT_EQ(item.menu[0].title, "\u26A0\uFE0F Accessibilite requise");
    EXPECT_EQ(item.menu[0].kind, MenuEntry::Kind::warning);
    EXPECT_EQ(item.menu[1].title, "  Ouvrir les Reglages...");
    EXPECT_EQ(item.menu[2].kind, MenuEntry::Kind::separator);
    EXPECT_EQ(item.menu[3].title, "Mode");
}

// A stale list, marks compared carelessly, two marks.
TEST_F(MenuBarControllerTest, showsTheFileAsItIsWhenTheMenuOpens) {
    for (const PromptMode& mode : defaultModes()) {
        program.setActiveMode(mode.id);
        item.onAboutToShow();
        EXPECT_THAT(checkedTitles(item.menu), ElementsAre(mode.name));
    }
    for (const char* unknown : {"", "EMAIL", "email "}) {
        program.setActiveMode(unknown);
        item.onAboutToShow();
        EXPECT_THAT(checkedTitles(item.menu), IsEmpty()) << unknown;
    }
    AppConfig config = program.configFile.load().value();
    config.modes.push_back({"long", "two\nlines " + std::string(300, 'x')});
    config.modes.push_back({"twice", "A"});
    config.modes.push_back({"twice", "B"});
    config.activeMode = "twice";
    program.configFile.save(config);
    item.onAboutToShow();
    EXPECT_THAT(checkedTitles(item.menu), ElementsAre("A"));
    EXPECT_EQ(item.menu[6].title, "two lines " + std::string(40, 'x') + "…");

    program.writeConfig("{ not json");
    item.onAboutToShow();
    EXPECT_EQ(item.menu.size(), 11u);
    EXPECT_THAT(checkedTitles(item.menu), ElementsAre("Voice to Text"));
}

// A choice that is not written, loses other settings, or overwrites a file it cannot read.
TEST_F(MenuBarControllerTest, choosingAModeWritesIt) {
    AppConfig expected = program.configFile.load().value();
    expected.dictionary = {"Nulo"};
    program.configFile.save(expected);
    expected.activeMode = "email";
    for (int i = 0; i < 2; ++i) {  // the second time it is the active one already
        const int before = item.menusSet;
        choose(item.menu, "Email");
        EXPECT_EQ(program.configFile.load(), expected);
        EXPECT_THAT(checkedTitles(item.menu), ElementsAre("Email"));
        EXPECT_EQ(item.menusSet, before + 1);
        EXPECT_EQ(program.printed.lines().size(), i + 1u);
        EXPECT_EQ(printedLast(), "Mode changed to: Email");
    }
    controller.selectMode("gone");
    EXPECT_EQ(printedLast(), "Mode changed to: Voice to Text");

    program.writeConfig("{ not json");
    const int before = item.menusSet;
    choose(item.menu, "Transcription brute");
    EXPECT_FALSE(program.configFile.load());
    EXPECT_EQ(item.menusSet, before);
    EXPECT_EQ(program.printed.lines().size(), 3u);
}

// An entry that does nothing, something else, or crashes without a listener or a controller.
TEST_F(MenuBarControllerTest, theOtherEntriesCallOut) {
    controller.accessibilityGranted = false;
    controller.rebuildMenu();
    for (const std::size_t row : {0, 1, 12, 13}) {
        if (item.menu[row].action)
            item.menu[row].action();
    }
    choose(item.menu, "Rechercher une mise a jour...");
    EXPECT_THAT(program.calls, ElementsAre("permission", "permission", "quit", "updates"));

    controller.onQuit = nullptr;
    controller.onCheckForUpdates = nullptr;
    choose(item.menu, "Quitter");
    choose(item.menu, "Rechercher une mise a jour...");

    FakeStatusItem other;
    {
        TrayProgram shortLived(other);
        shortLived.controller.rebuildMenu();
    }
    choose(other.menu, "Quitter");
    choose(other.menu, "Reglages...");
    EXPECT_FALSE(other.onAboutToShow);
}

// A second window over an open one, old settings in a new one, a save that the menu does not show.
TEST_F(MenuBarControllerTest, opensOneSettingsWindow) {
    choose(item.menu, "Reglages...");
    ASSERT_EQ(program.settingsMade, 1);
    ASSERT_TRUE(program.settingsWindow->isVisible());
    program.settingsWindow->showMinimized();
    choose(item.menu, "Reglages...");
    EXPECT_EQ(program.settingsMade, 1);
    EXPECT_FALSE(program.settingsWindow->isMinimized());

    AppConfig edited = program.settingsConfig;
    edited.modes.push_back({"0a1b2c3d", "Notes"});
    EXPECT_TRUE(program.saveSettings(edited).ok());
    EXPECT_EQ(item.menu[6].title, "Notes");
    EXPECT_TRUE(program.settingsWindow->isVisible());

    program.closeSettings();
    EXPECT_FALSE(program.settingsWindow->isVisible());
    choose(item.menu, "Reglages...");
    EXPECT_EQ(program.settingsMade, 2);
    EXPECT_EQ(program.settingsConfig, edited);
    program.closeSettings();
    program.writeConfig("[]");
    choose(item.menu, "Reglages...");
    EXPECT_EQ(program.settingsConfig, defaultConfig());

    std::filesystem::remove_all(program.configFile.configDir());
    std::ofstream(program.configFile.configDir()) << "in the way";
    EXPECT_FALSE(program.saveSettings(edited).ok());
}

// The wrong sign: recording hidden, or shown although nothing can be recorded.
TEST_F(MenuBarControllerTest, theWarningGoesBeforeRecording) {
    const auto shows = [&](const StatusIcon& expected) {
        controller.updateIcon();
        return item.icon.draw(32).argb == expected.draw(32).argb &&
               item.icon.description == expected.description &&
               item.icon.needsAttention == expected.needsAttention;
    };
    EXPECT_TRUE(shows(idleIcon()));
    program.recorder.isRecording().set(true);
    EXPECT_TRUE(shows(recordingIcon()));
    controller.accessibilityGranted = false;
    EXPECT_TRUE(shows(warningIcon()));
    EXPECT_EQ(item.icon.description, "Nulo - Accessibilite requise");
}

}  // namespace
}  // namespace nulo
