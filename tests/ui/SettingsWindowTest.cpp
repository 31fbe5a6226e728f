#include <QTest>
#include <QtWidgets>

#include "config/ConfigFile.h"
#include "fakes/PartTest.h"
#include "ui/OneLine.h"
#include "ui/alerts/Alert.h"
#include "ui/alerts/UpdateDialogs.h"
#include "ui/settings/PasteableTextField.h"
#include "ui/settings/SettingsView.h"
#include "ui/settings/WordChips.h"

namespace nulo {
namespace {

/// The window over a real file in a home of its own, driven as a user would.
class SettingsWindowTest : public PartTest {
  protected:
    void open(const AppConfig& saved) {
        m_file.save(saved);
        m_window = makeSettingsWindow(saved, m_dependencies, m_visibleFrame);
        m_window->show();
        m_window->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(m_window.get()));
    }
    /// By what a screen reader says, or by its title.
    template <typename Widget>
    Widget& the(const QString& name) {
        for (auto* widget : m_window->findChildren<Widget*>())
            if (widget->accessibleName() == name || widget->property("text") == name)
                return *widget;
        throw std::runtime_error("nothing is called " + name.toStdString());
    }
    bool shows(const QString& text) { return the<QLabel>(text).isVisible(); }
    WordChips& chips() { return dynamic_cast<WordChips&>(the<QListView>("Dictionnaire")); }
    QListView& list() { return the<QListView>("Modes"); }
    QPlainTextEdit& prompt() { return the<QPlainTextEdit>("Prompt"); }
    QToolButton& deleteButton() { return the<QToolButton>("Supprimer le mode"); }

    void type(const QString& text) {
        for (const QChar character : text)
            QTest::sendKeyEvent(QTest::Click, QApplication::focusWidget(), Qt::Key_unknown,
                                QString(character), Qt::NoModifier);
    }
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = {}) {
        QTest::keyClick(QApplication::focusWidget(), key, modifiers);
    }
    void save() { press(Qt::Key_Return, Qt::ControlModifier); }
    void addWord(const QString& word) {
        the<QLineEdit>("Ajouter un mot").setFocus();
        type(word);
        press(Qt::Key_Return);
    }
    static void click(QWidget& widget, QPoint position = {}) {
        QTest::mouseClick(&widget, Qt::LeftButton, {}, position);
        QCoreApplication::processEvents();
    }
    void clickRow(int row) {
        click(*list().viewport(), list().visualRect(list().model()->index(row, 0)).center());
    }

    ConfigFile m_file{m_folder.path(), [](std::string_view) {}};
    Outcome m_saved = Success{};
    QRect m_visibleFrame{0, 0, 1000, 800};
    const Alerts m_alerts{systemClock(), [this] { return m_visibleFrame; }};
    std::unique_ptr<QWidget> m_window;
    SettingsDependencies m_dependencies{
        .load = [this] { return m_file.load(); },
        .onSave =
            [this](const AppConfig& config) { return m_saved ? m_file.trySave(config) : m_saved; },
        .ask = [this](QWidget& over, const AlertContent& content,
                      auto onAnswer) { m_alerts.showOver(over, content, std::move(onAnswer)); }};
};

// An edit that never reaches the file, or reaches it unasked; what somebody else wrote overwritten.
TEST_F(SettingsWindowTest, editsByKeyboardAndSavesOverWhatIsOnDiskNow) {
    AppConfig config = defaultConfig();
    config.dictionary = {"Qt", "Nulo", "Xorg", "Qt"};
    open(config);
    addWord("  Ada Lovelace ");
    addWord("Nulo");  // is there already: stays in the field
    EXPECT_EQ(the<QLineEdit>("Ajouter un mot").text(), "Nulo");
    press(Qt::Key_Tab, Qt::ShiftModifier);
    for (const Qt::Key key : {Qt::Key_Home, Qt::Key_Right, Qt::Key_Delete})
        press(key);
    click(*chips().viewport(), chips().removeButtonRect(2).center());  // the first "Qt" goes
    click(the<QToolButton>("Ajouter un mode"));
    type("Mémo");  // over "Nouveau mode"
    EXPECT_EQ(list().currentIndex().data(), "Mémo");
    prompt().setPlainText("un\u00A0:\ndeux");
    EXPECT_EQ(m_file.load(), config);

    config.activeMode = "spanish";
    config.transcriptionProvider = "mistral";
    config.debugMode = true;
    config.dictionary = {"theirs"};
    m_file.save(config);
    prompt().setFocus();  // where the keys might as well be a line break
    m_saved = Error{"/x: <i>No space"};
    save();
    EXPECT_TRUE(shows("Enregistrement impossible : /x: <i>No space"));
    m_saved = Success{};
    save();
    config.dictionary = {"Xorg", "Qt", "Ada Lovelace"};
    config.modes.push_back(newCustomMode(m_file.load()->modes.back().id));
    config.modes.back().name = "Mémo";
    config.modes.back().prompt = "un\u00A0:\ndeux";
    EXPECT_EQ(m_file.load(), config);
    EXPECT_TRUE(shows("Enregistre."));
}

// A title bar above the screen, or a button below it.
TEST_F(SettingsWindowTest, fitsASmallScreen) {
    m_visibleFrame = QRect(0, 28, 960, 512);  // 1920×1080 at 200 %, below a panel
    open(defaultConfig());
    EXPECT_TRUE(m_visibleFrame.contains(m_window->geometry().adjusted(-1, -38, 1, 1)));
    EXPECT_LE(m_window->minimumHeight(), m_window->height());
}

// The wrong fields for a kind of mode; an edit of a built-in that seems to be saved.
TEST_F(SettingsWindowTest, theEditorFollowsTheSelectedMode) {
    AppConfig config = defaultConfig();
    config.modes.push_back({"1", "Mine", "p", false, "elsewhere"});
    open(config);
    EXPECT_FALSE(the<QLineEdit>("Nom du mode").isEnabled());
    EXPECT_FALSE(deleteButton().isEnabled());
    prompt().setFocus();
    type("edited");
    EXPECT_TRUE(shows("Mode inclus : ce changement ne sera pas enregistre."));
    save();
    EXPECT_TRUE(shows("Enregistre, sauf le changement du mode inclus."));
    EXPECT_EQ(prompt().toPlainText().toStdString(), voiceToTextMode().prompt);
    clickRow(1);
    EXPECT_TRUE(shows("Ce mode retourne la transcription brute sans reformulation."));
    EXPECT_FALSE(prompt().isVisible());
    clickRow(5);
    EXPECT_EQ(prompt().toPlainText(), "p");
    EXPECT_FALSE(the<QRadioButton>("Mistral Small").isChecked());
    save();
    EXPECT_EQ(m_file.load(), config);
}

// A mode deleted unasked, the wrong one, or a question that stays on the screen alone.
TEST_F(SettingsWindowTest, asksBeforeDeletingAMode) {
    AppConfig config = defaultConfig();
    config.modes.push_back({"1", "<b>\n" + std::string(10'000, 'x')});
    open(config);
    clickRow(5);
    const auto ask = [&] {
        click(deleteButton());
        return QPointer(m_window->findChild<QDialog*>());
    };
    EXPECT_EQ(ask()->windowModality(), Qt::WindowModal);
    EXPECT_TRUE(the<QTextEdit>("Le mode \"<b> " + QString(56, 'x') + "\u2026\" sera supprime.")
                    .isVisible());
    QTest::keyClick(m_window->findChild<QDialog*>(), Qt::Key_Return);
    EXPECT_EQ(list().model()->rowCount(), 6) << "Return means \"Annuler\"";
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    ask();
    QTest::keyClick(m_window.get(), Qt::Key_Return, Qt::ControlModifier);
    EXPECT_EQ(m_file.load(), config) << "saved behind the question";
    click(the<QPushButton>("Supprimer"));
    EXPECT_EQ(list().currentIndex().row(), 0);
    click(the<QPushButton>("Enregistrer"));
    EXPECT_EQ(m_file.load(), defaultConfig());

    click(the<QToolButton>("Ajouter un mode"));
    const auto question = ask();
    m_window->close();
    EXPECT_FALSE(question && question->isVisible());
}

// Texts changed by being shown; a widget for each of thousands of words; an edit that goes to
// another mode of the same id.
TEST_F(SettingsWindowTest, hugeAndStrangeSettingsComeBackAsTheyWere) {
    AppConfig config = defaultConfig();
    const std::string strange = "\u05E9\u05DC\r\n\u00A0\tA\u0301 \U0001F469\u200D\U0001F467\u2028";
    config.modes.resize(500, {"1", strange, strange});
    config.modes[7].name = std::string(100'000, 'n');
    config.dictionary.assign(5000, strange);
    config.dictionary[1] = std::string(10'000, 'w');
    open(config);
    EXPECT_LT(m_window->findChildren<QWidget*>().size(), 100);
    EXPECT_LE(chips().height(), m_window->height() / 3);
    EXPECT_LE(chips().visualRect(chips().model()->index(1, 0)).right(), chips().width());
    list().setFocus();
    for (int i = 0; i < 12; ++i)
        press(Qt::Key_Down);
    the<QLineEdit>("Nom du mode").setText("Mine");
    config.modes[12].name = "Mine";
    save();
    EXPECT_EQ(m_file.load(), config);
}

// A control that the Tab key never comes to, or that a screen reader cannot name.
TEST_F(SettingsWindowTest, everyControlIsReachedAndNamed) {
    AppConfig config = defaultConfig();
    config.dictionary = {"Nulo"};
    config.modes.push_back({"1", "Mine", "p", false, "openai"});
    m_dependencies.showsProgramMenu = true;
    open(config);
    clickRow(5);
    EXPECT_EQ(list().model()->index(0, 0).data(Qt::AccessibleTextRole), "Voice to Text, inclus");
    QStringList reached;
    for (int i = 0; i < 11; ++i) {
        auto* interface = QAccessible::queryAccessibleInterface(QApplication::focusWidget());
        reached.append(interface->text(QAccessible::Name));
        press(Qt::Key_Tab);
    }
    EXPECT_EQ(
        reached.join("; ").toStdString(),
        "Modes; Ajouter un mode; Supprimer le mode; Nom du mode; Prompt; OpenAI GPT-5.4 mini; "
        "Menu de Nulo; Enregistrer; Dictionnaire; Ajouter un mot; Ajouter le mot");
}

// A host that drops the window while the window still works with itself.
TEST_F(SettingsWindowTest, theHostMayDestroyItFromEachCallback) {
    m_dependencies.onClose = [this] { m_window.reset(); };
    m_dependencies.onSave = [this](const AppConfig&) {
        return m_window.reset(), Outcome(Success{});
    };
    const std::function<void()> ways[] = {[&] { m_window->close(); }, [&] { save(); },
                                          [&] { click(the<QPushButton>("Enregistrer")); }};
    for (const auto& way : ways) {
        open(defaultConfig());
        way();
        EXPECT_FALSE(m_window);
    }
}

// An editing key that does nothing, a line break in a word, a secret that other programs can read.
TEST(PasteableTextField, editsByItsKeysButGivesNoSecretAway) {
    QClipboard& clipboard = *QGuiApplication::clipboard();
    for (const bool isPlain : {true, false}) {
        PasteableTextField field(
            isPlain ? PasteableTextField::Kind::plain : PasteableTextField::Kind::secure, "...",
            nullptr);
        const auto press = [&](Qt::Key key) {
            QTest::keyClick(&field.field(), key, Qt::ControlModifier);
        };
        QString heard;
        field.onTextChanged = [&](const QString& text) { heard = text; };
        clipboard.setText("x\r\ny");
        press(Qt::Key_V);
        EXPECT_EQ(heard, "x y");
        EXPECT_EQ(field.field().displayText().contains("x"), isPlain);
        for (const Qt::Key key : {Qt::Key_C, Qt::Key_X}) {
            clipboard.setText("other");
            press(Qt::Key_A);
            press(key);
            EXPECT_EQ(clipboard.text() == "other", !isPlain);
        }
        EXPECT_EQ(field.text(), isPlain ? "" : "x y");
    }
}

// A character cut in two, or a line break that gets into one line.
TEST(OneLine, cutsBetweenCharacters) {
    EXPECT_EQ(oneLine("a\r\n\tb\u2028c"), "a   b c");
    EXPECT_EQ(oneLine("\U0001F469\U0001F469", 3), QString("\U0001F469\u2026"));
}

class AlertTest : public PartTest {
  protected:
    ~AlertTest() override {
        delete m_alert;
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    void show() {
        m_alert = m_alerts.show({{}, "Text", "Text", {"First", "R&D", "Last"}},
                                [this](std::size_t button) { m_answers.push_back(button); });
    }
    QPushButton* button(int index) { return m_alert->findChildren<QPushButton*>().at(index); }
    /// The texts and buttons of the one window that is shown.
    std::string shown() {
        std::string texts;
        for (QWidget* window : QApplication::topLevelWidgets()) {
            if (!window->isVisible())
                continue;
            m_alert = window;
            for (const auto* part : window->findChildren<QTextEdit*>())
                texts += part->toPlainText().toStdString() + "|";
            for (const auto* part : window->findChildren<QPushButton*>())
                texts += part->accessibleName().toStdString() + "|";
        }
        return texts;
    }

    const QRect m_screen = QGuiApplication::primaryScreen()->availableGeometry();
    const Alerts m_alerts{m_clock, [this] { return m_screen; }};
    QPointer<QWidget> m_alert;
    std::vector<std::size_t> m_answers;
};

// An answer given twice, to a window that is gone, or to the keys of somebody who was typing.
TEST_F(AlertTest, answersOnceAndNotToWhatIsTyped) {
    show();
    button(1)->click();  // the mouse need not wait
    m_alert->close();
    EXPECT_THAT(std::exchange(m_answers, {}), ElementsAre(1u));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(m_alert.isNull());
    for (const auto& [key, answer] : std::initializer_list<std::pair<Qt::Key, std::size_t>>{
             {Qt::Key_Return, 0}, {Qt::Key_Space, 0}, {Qt::Key_Escape, 2}}) {
        show();
        QTest::keyClick(m_alert->windowHandle(), key);
        m_clock.advance(1s);
        QTest::keyClick(m_alert->windowHandle(), Qt::Key_A);
        QTest::keyClick(m_alert->windowHandle(), key);
        EXPECT_THAT(m_answers, IsEmpty()) << key;
        m_clock.advance(1s);
        QTest::keyClick(m_alert->windowHandle(), key);
        EXPECT_THAT(std::exchange(m_answers, {}), ElementsAre(answer)) << key;
    }
}

// A text of the update's windows that is wrong, a button that does another's work.
TEST_F(AlertTest, updateDialogsSpeakToTheUser) {
    UpdateDialogs windows(m_alerts);
    windows.showUpdateDialog({.version = "1.3", .releaseNotes = "<b>"}, "1.2", [&](auto answer) {
        m_answers.push_back(answer == UpdateWindows::Answer::install);
    });
    EXPECT_EQ(shown(),
              "Nulo 1.3 est disponible|Vous utilisez la version 1.2.\n\n<b>|"
              "Installer maintenant|Plus tard|");
    button(0)->click();
    windows.showUpToDate("1.2", [&] { m_answers.push_back(7); });
    EXPECT_EQ(shown(), "Nulo est a jour|Vous utilisez la derniere version (1.2).|OK|");
    button(0)->click();
    windows.showError("Echec.", [&] { m_answers.push_back(8); });
    EXPECT_EQ(shown(), "Erreur de mise a jour|Echec.|OK|");
    m_alert->close();
    windows.bringToFront();
    EXPECT_EQ(shown(), "") << "a closed alert came back";
    windows.showProgress("1.3", [&] {
        m_answers.push_back(9);
        windows.closeProgress();
    });
    shown();
    EXPECT_EQ(m_alert->size(), QSize(320, 100));
    QTest::keyClick(m_alert, Qt::Key_Escape);
    QCoreApplication::processEvents();
    EXPECT_THAT(m_answers, ElementsAre(1u, 7u, 8u, 9u));
    EXPECT_TRUE(m_alert.isNull());
}

}  // namespace
}  // namespace nulo
