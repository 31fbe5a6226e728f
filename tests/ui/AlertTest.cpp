#include "ui/alerts/Alert.h"

#include <QTest>
#include <QtWidgets>

#include "fakes/PartTest.h"
#include "ui/alerts/UpdateDialogs.h"

namespace nulo {
namespace {

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
