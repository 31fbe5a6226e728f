#include <gtest/gtest.h>

#include <QCoreApplication>
#include <memory>
#include <optional>
#include <string>

#include "base/FileIO.h"
#include "pasting/Deliveries.h"
#include "platform/Backends.h"
#include "platform/WaylandBackends.h"
#include "rig/display/HeadlessCompositor.h"
#include "rig/process/WaitUntil.h"
#include "support/KdePortal.h"
#include "support/TestBus.h"

namespace nulo {
namespace {

namespace fs = std::filesystem;

/// KWin with the desktop's portal and a window that has the focus; this program is one that KWin's
/// desktop entries let send keys.
class KwinTest : public testing::Test {
  protected:
    KwinTest() {
        testBus().start();
        m_kwin.emplace(HeadlessCompositor::Kind::kwin,
                       HeadlessCompositor::Options{
                           .environment = {"DBUS_SESSION_BUS_ADDRESS=" + testBus().address()},
                           .fakeInputPrograms = {fs::read_symlink("/proc/self/exe")}});
        m_session = openWaylandSession(m_kwin->display());
        m_window.emplace(std::vector<std::string>{NULO_TEST_SUPPORT "/gtk-text-window.py", m_text},
                         m_kwin->options("gtk.log"));
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
    KdePortal portal(*m_kwin, testBus());
    std::string events;
    const auto source = makePortalShortcuts([](std::string_view) {});
    ASSERT_TRUE(eventually([&] { return source->isTrusted() && text(); }));
    const auto tap = source->createTap([&](const KeyEvent& event) {
        events += event.isSpace ? "space " : event.optionSet ? "option " : "end ";
        return EventFate::pass;
    });
    KwinKeyboard keyboard(m_kwin->display());
    keyboard.key(KwinKeyboard::alt, true);
    keyboard.key(KwinKeyboard::space, true);
    EXPECT_TRUE(eventually([&] { return events == "option space "; })) << events;
    keyboard.key(KwinKeyboard::alt, false);
    EXPECT_TRUE(eventually([&] { return events == "option space end "; })) << events;
    keyboard.key(KwinKeyboard::space, false);
    keyboard.key(KwinKeyboard::alt, true);
    keyboard.key(KwinKeyboard::space, true);
    EXPECT_TRUE(eventually([&] { return events == "option space end option space "; })) << events;
    portal.kill();
    EXPECT_TRUE(eventually([&] { return events.ends_with("space end "); })) << events;
    EXPECT_EQ(text(), "");
}

}  // namespace
}  // namespace nulo
