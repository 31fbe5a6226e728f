// The program's face on a desktop: its item in the tray, its windows, its name on the bus.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <csignal>
#include <optional>

#include "config/ConfigFile.h"
#include "desktop/ScreenReader.h"
#include "rig/desktop/DesktopSession.h"
#include "rig/process/WaitUntil.h"
#include "support/TrayPanel.h"

namespace nulo {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

const std::string settings = "Nulo - Reglages";

class TrayTest : public testing::Test {
  protected:
    TrayTest() : m_bus(QDBusConnection::connectToBus(m_address, "controller")) {}
    ~TrayTest() override { QDBusConnection::disconnectFromBus("controller"); }

    void startNulo() {
        m_desktop.startTextWindow();
        m_desktop.startNulo();
    }
    void startPanel() {
        m_panel.emplace(m_desktop.bus().address());
        ASSERT_TRUE(processUntil([&] { return m_panel->isRegistered(); }));
    }
    void click(const QString& label) {
        EXPECT_EQ(m_panel->click(m_panel->row(label).id), "") << label.toStdString();
    }
    QStringList checkedModes() {
        QStringList checked;
        for (const Panel::Row& row : m_panel->rows())
            if (row.isChecked())
                checked.append(row.label());
        return checked;
    }
    QDBusMessage control(const char* interface, const char* method, const QVariantList& arguments) {
        auto message =
            QDBusMessage::createMethodCall("org.nulo.Nulo", "/org/nulo/Nulo", interface, method);
        message.setArguments(arguments);
        return m_bus.call(message);
    }
    void control(const char* method) {
        EXPECT_EQ(control("org.nulo.Nulo", method, {}).errorMessage().toStdString(), "") << method;
    }
    std::string state() {
        return control("org.freedesktop.DBus.Properties", "Get", {"org.nulo.Nulo", "State"})
            .arguments()
            .value(0)
            .value<QDBusVariant>()
            .variant()
            .toString()
            .toStdString();
    }

    int m_argumentCount = 1;
    char m_name[5] = "tray";
    char* m_arguments[2] = {m_name, nullptr};
    QCoreApplication m_application{m_argumentCount, m_arguments};
    DesktopSession m_desktop;
    const QString m_address = QString::fromStdString(m_desktop.bus().address());
    ScreenReader m_reader{m_desktop.environment(), m_desktop.bus().address()};
    QDBusConnection m_bus;
    std::optional<Panel> m_panel;
};

TEST_F(TrayTest, theMenuOfARunningProgramDoesWhatItSays) {
    startNulo();
    startPanel();  // a panel that comes later than the program
    const ConfigFile config(m_desktop.home(), [](std::string_view) {});
    for (const PromptMode& mode : defaultModes()) {
        click(QString::fromStdString(mode.name));
        EXPECT_TRUE(m_desktop.waitForPrinted("Mode changed to: " + mode.name));
        EXPECT_EQ(config.load()->activeMode, mode.id);
        EXPECT_EQ(checkedModes(), QStringList(QString::fromStdString(mode.name)));
    }
    m_desktop.writeConfig("openai", "no-such-mode");
    m_panel->open();
    EXPECT_EQ(checkedModes(), QStringList());

    click("Reglages...");
    ASSERT_TRUE(m_reader.waitForWindow(settings));
    EXPECT_THAT(m_reader.textsIn(settings), testing::IsSupersetOf({"Dictionnaire", "Modes"}));
    EXPECT_THAT(m_reader.buttonsIn(settings), Contains("Enregistrer"));
    EXPECT_THAT(m_reader.buttonsIn(settings), Not(Contains("Menu de Nulo")));

    m_panel.reset();  // the panel crashes and comes back
    startPanel();
    click("Quitter");
    EXPECT_EQ(m_desktop.nulo().wait(std::chrono::seconds(10)), 0);
}

// A program that grabs the keys a second time, or that cannot be reached where there is no tray.
TEST_F(TrayTest, startingItAgainShowsTheSettingsOfTheOneThatRuns) {
    startNulo();
    const auto [status, output] = m_desktop.startNuloAgain();
    EXPECT_EQ(status, 0);
    EXPECT_THAT(output, HasSubstr("Nulo is already running"));
    EXPECT_THAT(output, Not(HasSubstr("Key tap")));
    ASSERT_TRUE(m_reader.waitForWindow(settings));
    EXPECT_THAT(m_reader.buttonsIn(settings), Contains("Menu de Nulo"));

    m_desktop.nulo().signal(SIGSTOP);
    EXPECT_EQ(m_desktop.startNuloAgain().first, 1);
    m_desktop.nulo().signal(SIGCONT);
    EXPECT_EQ(m_desktop.stopNulo(), 0);
}

TEST_F(TrayTest, aShortcutOfTheDesktopsDrivesIt) {
    startNulo();
    EXPECT_EQ(state(), "idle");
    control("Toggle");
    EXPECT_TRUE(waitUntil([&] { return state() == "recording"; }));
    control("Toggle");
    EXPECT_TRUE(m_desktop.waitForPrinted("Recording too short"));
    EXPECT_EQ(state(), "idle");
    control("StartRecording");
    EXPECT_TRUE(waitUntil([&] { return state() == "recording"; }));
    control("StopRecording");
    EXPECT_TRUE(waitUntil([&] { return state() == "idle"; }));
    control("ShowSettings");
    EXPECT_TRUE(m_reader.waitForWindow(settings));

    EXPECT_NE(control("org.nulo.Nulo", "NoSuchMethod", {}).errorName(), "");
    EXPECT_NE(control("org.nulo.Nulo", "Toggle", {1}).errorName(), "");
    EXPECT_EQ(state(), "idle");
}

// An unreachable bus must cost the tray and the remote control only.
TEST_F(TrayTest, dictatesWithoutABus) {
    m_desktop.bus().stop();
    startNulo();
    m_desktop.pressChord();
    EXPECT_TRUE(m_desktop.waitForPrinted("Recording started"));
    m_desktop.releaseChord();
    EXPECT_TRUE(m_desktop.waitForPrinted("Recording too short"));
    EXPECT_TRUE(m_desktop.waitForPrinted("No D-Bus session"));
    EXPECT_EQ(m_desktop.stopNulo(), 0);
}

}  // namespace
}  // namespace nulo
