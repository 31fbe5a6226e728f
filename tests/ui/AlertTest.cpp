#include "ui/alerts/Alert.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QTest>
#include <QTextEdit>
#include <QWindow>

#include "rig/process/FakeClock.h"
#include "ui/alerts/UpdateDialogs.h"
#include "ui/alerts/UpdateProgressWindow.h"

namespace nulo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class AlertTest : public testing::Test {
  protected:
    ~AlertTest() override {
        delete m_alert;
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    void show(AlertContent content) {
        m_alert = m_alerts.show(std::move(content),
                                [this](std::size_t button) { m_answers.push_back(button); });
    }
    static AlertContent threeButtons() {
        return {AlertContent::Style::warning, "Message", "Text", {"First", "R&D", "Last"}};
    }
    /// From left to right.
    std::vector<std::string> buttons() const { return texts<QPushButton>(*m_alert); }

    template <typename Widget>
    static std::vector<std::string> texts(const QWidget& window) {
        std::map<int, std::string> ordered;
        for (const auto* widget : window.findChildren<Widget*>())
            ordered[widget->x() + widget->y()] = widget->accessibleName().toStdString();
        std::vector<std::string> result;
        for (const auto& [position, text] : ordered)
            result.push_back(text);
        return result;
    }
    QPushButton* button(const QString& name) const {
        for (auto* candidate : m_alert->findChildren<QPushButton*>())
            if (candidate->accessibleName() == name)
                return candidate;
        return nullptr;
    }

    void press(Qt::Key key) { QTest::keyClick(m_alert->windowHandle(), key); }

    FakeClock m_clock;
    const Alerts m_alerts{m_clock,
                          [] { return QGuiApplication::primaryScreen()->availableGeometry(); }};
    QPointer<QWidget> m_alert;
    std::vector<std::size_t> m_answers;
};

TEST_F(AlertTest, answersOnceAndGoesAway) {
    show(threeButtons());
    EXPECT_THAT(m_answers, IsEmpty()) << "it waited";
    EXPECT_THAT(buttons(), ElementsAre("First", "R&D", "Last"));
    QPushButton* second = button("R&D");
    second->click();
    second->click();
    m_alert->close();
    EXPECT_THAT(m_answers, ElementsAre(1u));
    EXPECT_FALSE(m_alert->isVisible());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(m_alert.isNull());
}

TEST_F(AlertTest, keysChooseTheDefaultOrTheLast) {
    for (const auto& [key, answer] : std::initializer_list<std::pair<Qt::Key, std::size_t>>{
             {Qt::Key_Return, 0}, {Qt::Key_Enter, 0}, {Qt::Key_Escape, 2}}) {
        m_answers.clear();
        show(threeButtons());
        press(key);
        EXPECT_THAT(m_answers, IsEmpty()) << "meant for another program";
        m_clock.advance(std::chrono::seconds(1));
        press(Qt::Key_A);
        press(key);
        EXPECT_THAT(m_answers, IsEmpty()) << "typed";
        m_clock.advance(std::chrono::seconds(1));
        press(key);
        EXPECT_THAT(m_answers, ElementsAre(answer)) << key;
    }
    m_answers.clear();
    show(threeButtons());
    m_alert->findChild<QTextEdit*>()->setFocus();  // after a text was selected with the mouse
    m_clock.advance(std::chrono::seconds(1));
    press(Qt::Key_Return);
    EXPECT_THAT(m_answers, ElementsAre(0u));
    m_answers.clear();
    show(threeButtons());
    m_alert->close();
    EXPECT_THAT(m_answers, ElementsAre(2u));
}

TEST_F(AlertTest, mayBeDestroyedFromItsAnswerAndLeftUnanswered) {
    m_alert = m_alerts.show(threeButtons(), [this](std::size_t) { delete m_alert; });
    button("First")->click();
    EXPECT_TRUE(m_alert.isNull());
    show(threeButtons());
    delete m_alert;
    EXPECT_THAT(m_answers, IsEmpty());
}

TEST_F(AlertTest, showsAnyTextWithinTheScreen) {
    const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
    std::string lines;
    for (int i = 0; i < 20000; ++i)
        lines += "- a change, number " + std::to_string(i) + "\n";
    for (const std::string& text :
         {lines, std::string(100000, 'x'), std::string("<h1>No</h1> &amp; markup"),
          std::string("One word more than fits upon a line of it, and then some more of them."),
          std::string("\xff\0\x01", 3), std::string()}) {
        show({AlertContent::Style::informational, text, text, {"OK"}});
        EXPECT_TRUE(screen.contains(m_alert->frameGeometry())) << text.substr(0, 50);
        for (const auto* part : m_alert->findChildren<QTextEdit*>()) {
            EXPECT_TRUE(part->isReadOnly());
            EXPECT_TRUE(part->toPlainText().startsWith(QString::fromStdString(text).left(50)));
            // What does not fit can be scrolled to, never cut off.
            EXPECT_EQ(part->verticalScrollBar()->maximum() > 0,
                      part->verticalScrollBarPolicy() == Qt::ScrollBarAlwaysOn);
            EXPECT_EQ(part->horizontalScrollBar()->maximum(), 0);
        }
        delete m_alert;
    }
}

class UpdateDialogsTest : public AlertTest {
  protected:
    /// The only window that is shown.
    QWidget* window() {
        QWidget* found = nullptr;
        for (QWidget* candidate : QApplication::topLevelWidgets())
            if (candidate->isVisible()) {
                EXPECT_EQ(found, nullptr);
                found = candidate;
            }
        m_alert = found;
        return found;
    }
    std::vector<std::string> shownTexts() { return texts<QTextEdit>(*window()); }

    UpdateDialogs m_windows{m_alerts};
};

TEST_F(UpdateDialogsTest, speakToTheUser) {
    std::vector<UpdateWindows::Answer> answers;
    VersionInfo info;
    info.version = "1.3";
    info.releaseNotes = "Plus <b>rapide</b>.";
    for (const char* choice : {"Installer maintenant", "Plus tard"}) {
        m_windows.showUpdateDialog(info, "1.2.9", [&](auto answer) { answers.push_back(answer); });
        EXPECT_THAT(shownTexts(),
                    ElementsAre("Nulo 1.3 est disponible",
                                "Vous utilisez la version 1.2.9.\n\nPlus <b>rapide</b>."));
        EXPECT_THAT(buttons(), ElementsAre("Installer maintenant", "Plus tard"));
        button(choice)->click();
    }
    EXPECT_THAT(answers, ElementsAre(UpdateWindows::Answer::install, UpdateWindows::Answer::later));

    int closed = 0;
    m_windows.showUpToDate("1.2.9", [&] { ++closed; });
    EXPECT_THAT(shownTexts(),
                ElementsAre("Nulo est a jour", "Vous utilisez la derniere version (1.2.9)."));
    EXPECT_THAT(buttons(), ElementsAre("OK"));
    button("OK")->click();
    m_windows.showError("Telechargement echoue.", [&] { ++closed; });
    EXPECT_THAT(shownTexts(), ElementsAre("Erreur de mise a jour", "Telechargement echoue."));
    EXPECT_THAT(buttons(), ElementsAre("OK"));
    window()->close();
    EXPECT_EQ(closed, 2);
    m_windows.bringToFront();
    EXPECT_EQ(window(), nullptr) << "a closed alert came back";
}

TEST_F(UpdateDialogsTest, theProgressWindowHasItsPlacesAndStays) {
    int cancelled = 0;
    m_windows.showProgress("1.3", [&] {
        ++cancelled;
        m_windows.closeProgress();
    });
    QWidget* progress = window();
    EXPECT_EQ(progress->windowTitle(), "Mise a jour Nulo");
    EXPECT_EQ(progress->size(), QSize(320, 100));
    EXPECT_EQ(progress->minimumSize(), progress->maximumSize());
    EXPECT_FALSE(progress->windowFlags() &
                 (Qt::WindowCloseButtonHint | Qt::WindowMinMaxButtonsHint));
    const auto children = progress->findChildren<QWidget*>();
    ASSERT_EQ(children.size(), 2);
    EXPECT_EQ(children[0]->accessibleName(), "Telechargement de Nulo 1.3...");
    EXPECT_EQ(children[0]->geometry(), QRect(20, 25, 280, 20));
    EXPECT_EQ(children[1]->geometry(), QRect(40, 55, 240, 20));
    QTest::keyClick(progress, Qt::Key_Space);
    EXPECT_TRUE(progress->close()) << "the program could not end";
    EXPECT_EQ(cancelled, 0);
    progress->show();
    QTest::keyClick(progress, Qt::Key_Escape);
    QCoreApplication::processEvents();
    EXPECT_EQ(cancelled, 1);
    EXPECT_EQ(window(), nullptr);
}

}  // namespace
}  // namespace nulo
