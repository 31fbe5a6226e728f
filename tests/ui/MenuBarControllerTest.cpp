#include "ui/tray/MenuBarController.h"

#include <QTest>
#include <fstream>

#include "fakes/FakeEventTap.h"
#include "fakes/FakeStatusItem.h"
#include "fakes/PartTest.h"
#include "rig/sound/FakeMicrophone.h"
#include "ui/MenuWidget.h"
#include "ui/tray/StatusIcons.h"
#include "ui/tray/TrayItem.h"

namespace nulo {
namespace {

using Kind = MenuEntry::Kind;

/// A controller on a real configuration file; everything else is fake.
class MenuBarControllerTest : public PartTest {
  protected:
    MenuBarControllerTest() {
        configFile.createDefaultIfNeeded();
        controller->onCheckForUpdates = [this] { calls.emplace_back("updates"); };
        controller->onQuit = [this] { calls.emplace_back("quit"); };
        controller->accessibilityGranted = true;
        controller->rebuildMenu();
    }
    /// What is marked when the menu opens on a file like this.
    std::vector<std::string> marksWith(const std::string& activeMode,
                                       const std::vector<PromptMode>& more = {}) {
        AppConfig config = defaultConfig();
        config.activeMode = activeMode;
        config.modes.insert(config.modes.end(), more.begin(), more.end());
        configFile.save(config);
        item.onAboutToShow();
        return titles(item.menu, true);
    }

    std::vector<std::string> calls;
    FakeStatusItem item;
    FakeMicrophone microphone;
    FakeEventTapSource taps;
    ConfigFile configFile{m_folder.path(), [](std::string_view) {}};
    AudioRecorder recorder{microphone, nullptr,           m_queue,
                           m_clock,    m_printed.print(), m_folder.path()};
    GlobalKeyMonitor keys{taps, m_queue, nullptr, [this] { calls.emplace_back("help"); }};
    AppConfig settings;
    std::function<Outcome(const AppConfig&)> save;
    std::function<void()> close;
    QWidget* window = nullptr;
    std::optional<MenuBarController> controller{
        std::in_place,
        item,
        recorder,
        keys,
        configFile,
        m_printed.print(),
        [this](const AppConfig& config, auto onSave, auto onClose) {
            calls.emplace_back("settings");
            std::tie(settings, save, close) = std::tie(config, onSave, onClose);
            window = new QWidget;
            return std::unique_ptr<QWidget>(window);
        }};
};

// A row that is missing, misplaced or of the wrong kind; an entry that does another's work.
TEST_F(MenuBarControllerTest, hasTheRowsOfItsTable) {
    EXPECT_THAT(titles(item.menu),
                ElementsAre("Mode", "Voice to Text", "Transcription brute", "Commande systeme",
                            "Email", "Francais → Espagnol", "", "Reglages...",
                            "Rechercher une mise a jour...", "", "Quitter"));
    EXPECT_EQ(item.menu[0].kind, Kind::header);
    EXPECT_EQ(item.menu[7].shortcut + item.menu[10].shortcut, "Ctrl+,Ctrl+Q");
    controller->accessibilityGranted = false;
    controller->rebuildMenu();
    EXPECT_EQ(item.menu[0].kind, Kind::warning);
    for (const char* row : {"\u26A0\uFE0F Accessibilite requise", "  Ouvrir les Reglages...",
                            "Rechercher une mise a jour...", "Quitter"})
        choose(item.menu, row);
    EXPECT_THAT(calls, ElementsAre("help", "help", "updates", "quit"));
    controller.reset();
    choose(item.menu, "Quitter");  // a late click
    EXPECT_THAT(calls, SizeIs(4));
}

// A stale list, marks compared carelessly, two marks, a name as wide as the screen; a choice that
// is not written, loses other settings, or overwrites a file that cannot be read.
TEST_F(MenuBarControllerTest, showsTheFileAsItIsWhenTheMenuOpens) {
    EXPECT_THAT(marksWith("email"), ElementsAre("Email"));
    EXPECT_THAT(marksWith("EMAIL"), IsEmpty());
    EXPECT_THAT(marksWith("twice", {{"twice", "A"}, {"twice", "B"}}), ElementsAre("A"));
    AppConfig expected = configFile.load().value();
    expected.activeMode = "email";
    choose(item.menu, "Email");
    EXPECT_EQ(configFile.load(), expected);
    EXPECT_THAT(titles(item.menu, true), ElementsAre("Email"));
    EXPECT_THAT(m_printed.lines(), ElementsAre("Mode changed to: Email"));
    std::ofstream(configFile.configFile()) << "{ not json";
    item.onAboutToShow();
    EXPECT_THAT(titles(item.menu, true), ElementsAre("Voice to Text"));
    choose(item.menu, "Email");
    EXPECT_FALSE(configFile.load());
}

// A second window over an open one, old settings in a new one, a save that the menu does not show.
TEST_F(MenuBarControllerTest, opensOneSettingsWindow) {
    choose(item.menu, "Reglages...");
    window->showMinimized();
    choose(item.menu, "Reglages...");
    EXPECT_THAT(calls, ElementsAre("settings"));
    EXPECT_FALSE(window->isMinimized());
    AppConfig edited = settings;
    edited.modes.push_back({"0a1b2c3d", "Notes"});
    EXPECT_TRUE(save(edited).ok());
    EXPECT_EQ(item.menu[6].title, "Notes");
    close();
    EXPECT_FALSE(window->isVisible());
    choose(item.menu, "Reglages...");
    EXPECT_EQ(settings, edited);
}

// The wrong sign: recording hidden, or shown although nothing can be recorded.
TEST_F(MenuBarControllerTest, theWarningGoesBeforeRecording) {
    for (const std::string state : {"", "-recording", "-warning"}) {
        controller->updateIcon();
        EXPECT_EQ(item.icon.symbolicName, "org.nulo.Nulo" + state + "-symbolic");
        controller->accessibilityGranted = !recorder.isRecording().get();
        recorder.isRecording().set(true);
    }
}

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
