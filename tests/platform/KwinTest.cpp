#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <csignal>
#include <memory>
#include <optional>
#include <string>

#include "base/FileIO.h"
#include "pasting/Deliveries.h"
#include "platform/Backends.h"
#include "platform/WaylandBackends.h"
#include "platform/wayland/WaylandConnection.h"
#include "rig/display/HeadlessCompositor.h"
#include "rig/process/WaitUntil.h"
#include "support/TestBus.h"

namespace nulo {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t altKey = 56, spaceKey = 57;  // the kernel's codes

/// KWin with the desktop's portal and a window that has the focus; this program is one that KWin's
/// desktop entries let send keys.
class KwinTest : public testing::Test {
  protected:
    KwinTest() {
        testBus().start();
        m_kwin.emplace(HeadlessCompositor::Kind::kwin,
                       HeadlessCompositor::Options{
                           .environment = {"DBUS_SESSION_BUS_ADDRESS=" + testBus().address()},
                           .fakeInputProgram = fs::read_symlink("/proc/self/exe")});
        m_session = openWaylandSession(m_kwin->display());
        m_window.emplace(std::vector<std::string>{NULO_TEST_SUPPORT "/gtk-text-window.py", m_text},
                         m_kwin->options("gtk.log"));
    }
    void startPortal() {
        ChildProcess::Options options = m_kwin->options("portal.log");
        options.environment.insert(
            options.environment.end(),
            {"XDG_CURRENT_DESKTOP=KDE", "LC_ALL=C.UTF-8", "HOME=" + m_kwin->folder().string(),
             "XDG_DATA_HOME=" + m_kwin->folder().string()});
        for (const auto& entry : fs::directory_iterator("/usr/lib"))
            if (const fs::path portal = entry.path() / "libexec/xdg-desktop-portal-kde";
                fs::exists(portal))
                m_desktopPortal.emplace(std::vector<std::string>{portal}, options);
        ASSERT_TRUE(eventually([&] { return isOnBus("org.freedesktop.impl.portal.desktop.kde"); }));
        m_portal.emplace(std::vector<std::string>{"/usr/libexec/xdg-desktop-portal"}, options);
        ASSERT_TRUE(eventually([&] { return isOnBus("org.freedesktop.portal.Desktop"); }));
    }
    static bool isOnBus(const char* name) {
        const auto bus = QDBusConnection::connectToBus(testBus().address().c_str(), "look");
        return bus.interface()->isServiceRegistered(name);
    }
    template <typename Condition>
    static bool eventually(Condition condition) {
        return waitUntil(
            [&] {
                QCoreApplication::processEvents();
                return condition();
            },
            std::chrono::seconds(60));
    }
    std::optional<std::string> text() const { return readFile(m_text, 1'000'000); }

    int m_argumentCount = 1;
    char m_name[5] = "test";
    char* m_arguments[2] = {m_name, nullptr};
    QCoreApplication m_application{m_argumentCount, m_arguments};
    TemporaryFolder m_folder;
    const fs::path m_text = m_folder / "text";
    std::optional<HeadlessCompositor> m_kwin;
    std::unique_ptr<MainQueue> m_queue = makeQtMainQueue();
    std::shared_ptr<WaylandSession> m_session;
    std::optional<ChildProcess> m_window;
    std::optional<ChildProcess> m_desktopPortal;
    std::optional<ChildProcess> m_portal;
};

// Faults: keys that KWin does not take, or takes for others; a selection that GTK does not read.
TEST_F(KwinTest, pastesOneTextAfterTheOther) {
    const auto pasteboard = makeWaylandPasteboard(m_session, *m_queue);
    const auto keystroke = makeFakeInputPaste(m_session);
    Deliveries deliveries(*m_queue, systemClock(), *pasteboard, *keystroke);
    deliveries.onFailure = [](const Error& reason) { ADD_FAILURE() << reason.description; };
    ASSERT_TRUE(eventually([&] { return text().has_value(); }));
    for (const std::string one : {"déjà ", "vu"})
        deliveries.await([&, one] {
            deliveries.copy(one);
            deliveries.paste();
        });
    EXPECT_TRUE(eventually([&] { return text() == "déjà vu"; })) << text().value_or("no text");
}

// Faults: a shortcut that is asked for in a way that the desktop does not understand; a chord that
// ends with the wrong key, begins again with each repetition, or survives the portal; a Space that
// reaches the window.
TEST_F(KwinTest, tellsOfThePortalsShortcut) {
    startPortal();
    std::string events;
    const auto source = makePortalShortcuts([](std::string_view) {});
    ASSERT_TRUE(eventually([&] { return source->isTrusted() && text(); }));
    const auto tap = source->createTap([&](const KeyEvent& event) {
        events += event.isSpace ? "space " : event.optionSet ? "option " : "end ";
        return EventFate::pass;
    });
    const auto connection = WaylandConnection::open(m_kwin->display());
    ASSERT_TRUE(connection) << connection.error().description;
    const auto keyboard =
        connection.value()->bind<org_kde_kwin_fake_input>(org_kde_kwin_fake_input_interface, 4, 4);
    ASSERT_TRUE(keyboard);
    org_kde_kwin_fake_input_authenticate(keyboard.get(), "test", "test");
    const auto key = [&](std::uint32_t code, bool isDown) {
        org_kde_kwin_fake_input_keyboard_key(keyboard.get(), code, isDown);
        connection.value()->finish();
    };
    key(altKey, true);
    key(spaceKey, true);
    EXPECT_TRUE(eventually([&] { return events == "option space "; })) << events;
    key(altKey, false);
    EXPECT_TRUE(eventually([&] { return events == "option space end "; })) << events;
    key(spaceKey, false);
    key(altKey, true);
    key(spaceKey, true);
    EXPECT_TRUE(eventually([&] { return events == "option space end option space "; })) << events;
    m_portal->signal(SIGKILL);
    EXPECT_TRUE(eventually([&] { return events.ends_with("space end "); })) << events;
    EXPECT_EQ(text(), "");
}

}  // namespace
}  // namespace nulo
