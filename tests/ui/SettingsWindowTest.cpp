#include "ui/settings/SettingsView.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAccessible>
#include <QApplication>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QRadioButton>
#include <QTest>
#include <QToolButton>
#include <fstream>

#include "config/ConfigFile.h"
#include "fakes/PrintedLines.h"
#include "rig/process/TemporaryFolder.h"
#include "ui/settings/WordChips.h"

namespace nulo {
namespace {

using testing::ElementsAre;

PromptMode custom(const std::string& id, const std::string& name, const std::string& prompt = "p") {
    return {id, name, prompt, false, "mistral"};
}

/// The window over a real file in a home of its own, driven as a user would.
class SettingsWindowTest : public testing::Test {
  protected:
    void open(const AppConfig& saved) {
        m_file.save(saved);
        open();
    }
    void open() {
        m_window = makeSettingsWindow(m_file.load().value(), m_host, m_visibleFrame);
        m_window->show();
        m_window->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(m_window.get()));
    }

    template <typename Widget>
    Widget& named(const QString& name) {
        for (auto* widget : m_window->findChildren<Widget*>())
            if (widget->accessibleName() == name)
                return *widget;
        ADD_FAILURE() << "nothing is called " << name.toStdString();
        std::abort();
    }
    template <typename Button>
    Button& titled(const QString& text) {
        for (auto* button : m_window->findChildren<Button*>())
            if (button->text() == text)
                return *button;
        ADD_FAILURE() << "no button says " << text.toStdString();
        std::abort();
    }
    WordChips& chips() { return dynamic_cast<WordChips&>(named<QListView>("Dictionnaire")); }
    QListView& list() { return named<QListView>("Modes"); }
    QLineEdit& nameField() { return named<QLineEdit>("Nom du mode"); }
    QPlainTextEdit& prompt() { return named<QPlainTextEdit>("Prompt"); }
    QToolButton& deleteButton() { return named<QToolButton>("Supprimer le mode"); }
    QDialog* question() {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        return m_window->findChild<QDialog*>();
    }

    /// To whatever has the keyboard focus.
    void type(const QString& text) {
        for (const QChar character : text)
            QTest::sendKeyEvent(QTest::Click, QApplication::focusWidget(), Qt::Key_unknown,
                                QString(character), Qt::NoModifier);
    }
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = {}) {
        QTest::keyClick(QApplication::focusWidget(), key, modifiers);
    }
    void click(QWidget& widget) { QTest::mouseClick(&widget, Qt::LeftButton); }
    void clickRow(int row) {
        const QPoint position = list().visualRect(list().model()->index(row, 0)).center();
        QTest::mouseClick(list().viewport(), Qt::LeftButton, {}, position);
    }
    void save() { press(Qt::Key_Return, Qt::ControlModifier); }

    bool shows(const QString& text) {
        for (const auto* label : m_window->findChildren<QLabel*>())
            if (label->isVisible() && label->text() == text)
                return true;
        return false;
    }
    void writeFile(const std::string& text) { std::ofstream(m_file.configFile()) << text; }

    TemporaryFolder m_home;
    PrintedLines m_printed;
    ConfigFile m_file{m_home.path(), m_printed.print()};
    int m_saves = 0;
    std::string m_diskFault;
    QRect m_visibleFrame{0, 0, 1000, 800};
    std::unique_ptr<QWidget> m_window;
    SettingsHost m_host{[this] { return m_file.load(); },
                        [this](const AppConfig& config) -> Outcome {
                            ++m_saves;
                            if (!m_diskFault.empty())
                                return Error{m_diskFault};
                            return m_file.trySave(config);
                        },
                        [] {}, [] { return Menu{}; }};
};

// An edit that never reaches the file, or one that reaches it without being asked to.
TEST_F(SettingsWindowTest, editsByKeyboardAndSaves) {
    AppConfig config = defaultConfig();
    config.dictionary = {"Qt", "Nulo", "Xorg"};
    open(config);
    EXPECT_EQ(m_window->windowTitle(), "Nulo - Reglages");
    EXPECT_EQ(m_window->size(), QSize(580, 620));
    EXPECT_EQ(m_window->minimumSize(), QSize(550, 560));

    type("  Ada Lovelace ");
    press(Qt::Key_Return);
    type("Nulo");
    press(Qt::Key_Return);  // is there already: stays in the field
    EXPECT_EQ(named<QLineEdit>("Ajouter un mot").text(), "Nulo");
    press(Qt::Key_Tab, Qt::ShiftModifier);
    ASSERT_EQ(QApplication::focusWidget(), &chips());
    press(Qt::Key_Home);
    press(Qt::Key_Right);
    press(Qt::Key_Delete);
    EXPECT_EQ(chips().model()->rowCount(), 3);

    for (const char* next : {"Ajouter un mot", "Ajouter le mot", "Modes", "Ajouter un mode"}) {
        press(Qt::Key_Tab);
        EXPECT_EQ(QApplication::focusWidget()->accessibleName(), next);
    }
    press(Qt::Key_Space);
    type("Mémo");  // over "Nouveau mode"
    EXPECT_EQ(list().currentIndex().data(), "Mémo");
    press(Qt::Key_Tab);
    press(Qt::Key_A, Qt::ControlModifier);
    type("un\u00A0:");
    press(Qt::Key_Return);
    type("deux");
    press(Qt::Key_Tab);
    press(Qt::Key_Right);
    EXPECT_TRUE(titled<QRadioButton>("OpenAI GPT-5.4 mini").isChecked());
    EXPECT_EQ(m_file.load(), config);

    prompt().setFocus();  // where the keys might as well be a line break
    save();
    config.dictionary = {"Qt", "Xorg", "Ada Lovelace"};
    AppConfig saved = m_file.load().value();
    ASSERT_EQ(saved.modes.size(), 6u);
    EXPECT_THAT(saved.modes.back().id, testing::MatchesRegex("[0-9a-f]{8}"));
    config.modes.push_back({saved.modes.back().id, "Mémo", "un\u00A0:\ndeux", false, "openai"});
    EXPECT_EQ(saved, config);
    EXPECT_TRUE(shows("Enregistre."));
    EXPECT_TRUE(m_window->isVisible());
}

// A title bar above the screen, or a button below it.
TEST_F(SettingsWindowTest, fitsASmallScreen) {
    for (const QSize screen : {QSize(960, 540), QSize(1093, 614), QSize(1024, 600)}) {
        m_visibleFrame = QRect(QPoint(0, 28), screen - QSize(0, 28));  // below a panel
        open(defaultConfig());
        EXPECT_TRUE(m_visibleFrame.contains(m_window->geometry().adjusted(-1, -38, 1, 1)));
        m_window->resize(m_window->minimumSize());
        EXPECT_TRUE(m_visibleFrame.contains(titled<QPushButton>("Enregistrer").mapToGlobal(QPoint())));
    }
}

// A chip's button that removes another word, or an emptied dictionary that traps the focus.
TEST_F(SettingsWindowTest, chipsAreRemovedWithTheMouse) {
    AppConfig config = defaultConfig();
    config.dictionary = {"b", "a", "b"};
    open(config);
    const auto clickButtonOf = [&](int row) {
        QTest::mouseClick(chips().viewport(), Qt::LeftButton, {},
                          chips().removeButtonRect(row).center());
        QCoreApplication::processEvents();
    };
    QTest::mousePress(chips().viewport(), Qt::LeftButton, {}, chips().removeButtonRect(0).center());
    QTest::mouseRelease(chips().viewport(), Qt::LeftButton, {}, QPoint(1, 1));
    EXPECT_EQ(chips().model()->rowCount(), 3) << "the button was left before the mouse went up";
    clickButtonOf(2);
    click(titled<QPushButton>("Enregistrer"));
    EXPECT_THAT(m_file.load()->dictionary, ElementsAre("a", "b"));
    EXPECT_EQ(chips().model()->index(0, 0).data(), "a");
    clickButtonOf(0);
    clickButtonOf(0);
    EXPECT_FALSE(chips().isVisible());
    type("c");
    click(named<QToolButton>("Ajouter le mot"));
    EXPECT_TRUE(chips().isVisible());
    save();
    EXPECT_THAT(m_file.load()->dictionary, ElementsAre("c"));
}

// The wrong fields for a kind of mode; an edit of a built-in that is saved.
TEST_F(SettingsWindowTest, theEditorFollowsTheSelectedMode) {
    AppConfig config = defaultConfig();
    config.activeMode = "email";
    config.modes.push_back(custom("1", "Mine"));
    config.modes.back().cleanupModel = "elsewhere";
    open(config);
    EXPECT_EQ(nameField().text(), "Voice to Text");
    EXPECT_FALSE(nameField().isEnabled());
    EXPECT_FALSE(deleteButton().isEnabled());
    EXPECT_EQ(list().currentIndex().data(Qt::AccessibleTextRole), "Voice to Text, inclus");
    EXPECT_TRUE(prompt().isVisible());
    prompt().setFocus();
    type("edited");
    EXPECT_TRUE(shows("Mode inclus : ce changement ne sera pas enregistre."));
    save();
    EXPECT_TRUE(shows("Enregistre, sauf le changement du mode inclus."));
    EXPECT_EQ(prompt().toPlainText().toStdString(), voiceToTextMode().prompt);
    type("edited");
    clickRow(1);
    EXPECT_FALSE(shows("Mode inclus : ce changement ne sera pas enregistre."));
    EXPECT_FALSE(prompt().isVisible());
    EXPECT_TRUE(shows("Ce mode retourne la transcription brute sans reformulation."));
    clickRow(5);
    EXPECT_TRUE(nameField().isEnabled());
    EXPECT_TRUE(deleteButton().isEnabled());
    EXPECT_EQ(prompt().toPlainText(), "p");
    EXPECT_FALSE(titled<QRadioButton>("Mistral Small").isChecked());
    EXPECT_FALSE(titled<QRadioButton>("OpenAI GPT-5.4 mini").isChecked());
    save();
    EXPECT_EQ(m_file.load(), config);
}

// A mode deleted unasked, the wrong one, or a question that stops the program while it is open.
TEST_F(SettingsWindowTest, asksBeforeDeletingAMode) {
    AppConfig config = defaultConfig();
    config.modes.push_back(custom("1", "<b>\n" + std::string(10'000, 'x')));
    config.modes.push_back(custom("2", "Other"));
    open(config);
    clickRow(5);
    click(deleteButton());
    ASSERT_TRUE(question());
    EXPECT_EQ(question()->windowModality(), Qt::WindowModal);
    EXPECT_TRUE(shows("Supprimer ce mode ?"));
    EXPECT_TRUE(shows("Le mode \"<b> " + QString(56, 'x') + "\u2026\" sera supprime."));
    EXPECT_LT(question()->width(), 800);
    QTest::keyClick(question(), Qt::Key_Escape);
    EXPECT_FALSE(question());

    click(deleteButton());
    QTest::keyClick(m_window.get(), Qt::Key_Return, Qt::ControlModifier);
    EXPECT_EQ(m_saves, 0) << "saved behind the question";
    click(titled<QPushButton>("Supprimer"));
    EXPECT_FALSE(question());
    EXPECT_EQ(list().currentIndex().row(), 0);
    EXPECT_EQ(nameField().text(), "Voice to Text");
    EXPECT_FALSE(deleteButton().isEnabled());
    save();
    config.modes.erase(config.modes.begin() + 5);
    EXPECT_EQ(m_file.load(), config);

    clickRow(5);
    click(deleteButton());
    m_window->close();
    EXPECT_FALSE(question()) << "it would stay on the screen alone";
}

TEST_F(SettingsWindowTest, withoutModesThereIsNothingToEdit) {
    m_window = makeSettingsWindow(AppConfig(), m_host, m_visibleFrame);
    m_window->show();
    EXPECT_TRUE(shows("Selectionnez un mode"));
    EXPECT_FALSE(deleteButton().isEnabled());
    click(named<QToolButton>("Ajouter un mode"));
    EXPECT_FALSE(shows("Selectionnez un mode"));
    click(deleteButton());
    click(titled<QPushButton>("Supprimer"));
    EXPECT_TRUE(shows("Selectionnez un mode"));
    EXPECT_FALSE(deleteButton().isEnabled());
}

// What somebody else wrote meanwhile overwritten; a broken file that stops the save.
TEST_F(SettingsWindowTest, savesOverWhatIsOnDiskNow) {
    open(defaultConfig());
    AppConfig elsewhere = defaultConfig();
    elsewhere.activeMode = "spanish";
    elsewhere.transcriptionProvider = "mistral";
    elsewhere.debugMode = true;
    elsewhere.dictionary = {"theirs"};
    m_file.save(elsewhere);
    type("ours");
    press(Qt::Key_Return);
    save();
    elsewhere.dictionary = {"ours"};
    EXPECT_EQ(m_file.load(), elsewhere);
    save();
    EXPECT_EQ(m_saves, 2);
    EXPECT_EQ(m_file.load(), elsewhere);

    writeFile("{\"modes\": [");
    save();
    AppConfig ours = defaultConfig();
    ours.dictionary = {"ours"};
    EXPECT_EQ(m_file.load(), ours);
}

// Edits lost, or a failure that nobody sees.
TEST_F(SettingsWindowTest, saysWhySavingFailedAndKeepsTheEdits) {
    open(defaultConfig());
    type("Ada");
    press(Qt::Key_Return);
    m_diskFault = "/x: <i>No space left on device";
    save();
    EXPECT_TRUE(shows("Enregistrement impossible : /x: <i>No space left on device"));
    EXPECT_EQ(m_file.load(), defaultConfig());
    type("Bob");
    press(Qt::Key_Return);
    EXPECT_TRUE(shows("Enregistrement impossible : /x: <i>No space left on device"));
    m_diskFault.clear();
    save();
    EXPECT_TRUE(shows("Enregistre."));
    EXPECT_THAT(m_file.load()->dictionary, ElementsAre("Ada", "Bob"));
    type("Eve");
    press(Qt::Key_Return);
    EXPECT_FALSE(shows("Enregistre."));

    m_window->close();
    EXPECT_THAT(m_file.load()->dictionary, ElementsAre("Ada", "Bob"));
}

// Texts changed by being shown; a widget for each of thousands of words.
TEST_F(SettingsWindowTest, hugeAndStrangeSettingsComeBackAsTheyWere) {
    AppConfig config = defaultConfig();
    const std::string strange =
        "\u05E9\u05DC\u05D5\u05DD\r\n\u00A0\tA\u0301 \U0001F469\u200D\U0001F467"
        "\u2028\u2029";
    for (int i = 0; i < 500; ++i)
        config.modes.push_back(
            custom(std::to_string(i), strange + std::string(i % 10 ? 10 : 10'000, 'n'), strange));
    config.modes[7].name = std::string(100'000, 'n');
    for (int i = 0; i < 5000; ++i)
        config.dictionary.push_back("word " + std::to_string(i));
    config.dictionary[1] = strange + std::string(10'000, 'w');
    open(config);
    EXPECT_LT(m_window->findChildren<QWidget*>().size(), 100);
    EXPECT_LE(chips().height(), m_window->height() / 3);
    EXPECT_LE(chips().visualRect(chips().model()->index(1, 0)).right(), chips().width());
    EXPECT_EQ(chips().visualRect(chips().model()->index(1, 0)).height(),
              chips().visualRect(chips().model()->index(0, 0)).height());
    const QString name = list().model()->index(6, 0).data().toString();
    EXPECT_FALSE(name.contains('\n'));
    EXPECT_LT(name.size(), 300);

    type("one more");
    press(Qt::Key_Return);
    list().setFocus();
    for (int i = 0; i < 12; ++i)
        press(Qt::Key_Down);
    press(Qt::Key_End);
    EXPECT_EQ(list().currentIndex().row(), 504);
    save();
    config.dictionary.push_back("one more");
    EXPECT_EQ(m_file.load(), config);
}

/// Every control below `element` that can have the focus, by name, and those without one.
void collectFocusable(QAccessibleInterface& element, QStringList& names, QStringList& nameless) {
    if (element.state().invisible)
        return;
    if (element.state().focusable && !element.state().disabled) {
        const QString name = element.text(QAccessible::Name);
        if (name.isEmpty())
            nameless.append(element.object() ? element.object()->metaObject()->className() : "?");
        names.append(name);
    }
    for (int i = 0; i < element.childCount(); ++i)
        if (auto* child = element.child(i))
            collectFocusable(*child, names, nameless);
}

// A control that a screen reader cannot name, or that the Tab key never comes to.
TEST_F(SettingsWindowTest, everyControlIsNamedAndReached) {
    AppConfig config = defaultConfig();
    config.dictionary = {"Nulo"};
    config.modes.push_back(custom("1", "Mine"));
    config.modes.back().cleanupModel = "openai";
    m_host.showsProgramMenu = true;
    open(config);
    clickRow(5);
    QStringList names;
    QStringList nameless;
    collectFocusable(*QAccessible::queryAccessibleInterface(m_window.get()), names, nameless);
    EXPECT_EQ(nameless.join(", ").toStdString(), "");
    for (const char* name : {"Nulo", "Voice to Text, inclus", "Mine"})
        EXPECT_TRUE(names.contains(name))
            << name << " is not in " << names.join("; ").toStdString();

    QStringList reached;
    QWidget* const first = QApplication::focusWidget();
    do {
        auto* interface = QAccessible::queryAccessibleInterface(QApplication::focusWidget());
        reached.append(interface->text(QAccessible::Name));
        press(Qt::Key_Tab);
    } while (QApplication::focusWidget() != first && reached.size() < 50);
    EXPECT_EQ(
        reached.join("; ").toStdString(),
        "Modes; Ajouter un mode; Supprimer le mode; Nom du mode; Prompt; OpenAI GPT-5.4 mini; "
        "Menu de Nulo; Enregistrer; Dictionnaire; Ajouter un mot; Ajouter le mot");
}

// An old menu, or one whose shortcuts are only shown.
TEST_F(SettingsWindowTest, theProgramMenuIsFilledAtEachOpeningAndItsShortcutsWork) {
    int filled = 0;
    int quits = 0;
    m_host.showsProgramMenu = true;
    m_host.programMenu = [&] {
        return Menu{
            {MenuEntry::Kind::action, std::to_string(filled++), [&] { ++quits; }, false, "Ctrl+Q"}};
    };
    open(defaultConfig());
    auto& button = named<QToolButton>("Menu de Nulo");
    for (const char* title : {"1", "2"}) {
        click(button);
        auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
        ASSERT_TRUE(menu);
        ASSERT_EQ(menu->actions().size(), 1);
        EXPECT_EQ(menu->actions().front()->text(), title);
        QTest::keyClick(menu, Qt::Key_Q, Qt::ControlModifier);
        EXPECT_FALSE(menu->isVisible());
    }
    press(Qt::Key_Q, Qt::ControlModifier);
    QCoreApplication::processEvents();
    EXPECT_EQ(quits, 3);
}

// A host that drops the window while the window still works with itself.
TEST_F(SettingsWindowTest, theHostMayDestroyItFromEachCallback) {
    m_file.save(defaultConfig());
    m_host.onClose = [this] {
        m_window->close();  // again, from inside
        m_window.reset();
    };
    open();
    QPointer<QWidget> window = m_window.get();
    window->close();
    EXPECT_FALSE(window);

    m_host.onSave = [this](const AppConfig&) -> Outcome {
        m_window.reset();
        return Success{};
    };
    for (const bool byKey : {true, false}) {
        open();
        window = m_window.get();
        byKey ? save() : click(titled<QPushButton>("Enregistrer"));
        EXPECT_FALSE(window);
    }
}

// Light groups in a theme that has become dark.
TEST_F(SettingsWindowTest, followsTheThemeWhileItIsOpen) {
    open(defaultConfig());
    const QPalette before = QApplication::palette();
    QPalette dark(QColor(40, 40, 40));
    dark.setColor(QPalette::Base, QColor(20, 30, 40));
    QApplication::setPalette(dark);
    QCoreApplication::processEvents();
    const QImage picture = m_window->grab().toImage();
    const QPoint inList = list().viewport()->mapTo(m_window.get(), QPoint(20, 180));
    EXPECT_EQ(picture.pixelColor(inList), QColor(20, 30, 40));
    QApplication::setPalette(before);
}

}  // namespace
}  // namespace nulo
