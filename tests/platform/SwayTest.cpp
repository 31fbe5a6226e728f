#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <csignal>
#include <memory>
#include <string>

#include "base/FileIO.h"
#include "pasting/Deliveries.h"
#include "platform/Backends.h"
#include "platform/WaylandBackends.h"
#include "rig/display/HeadlessCompositor.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

/// sway with a terminal that has the focus, and this program as a client without a window.
class SwayTest : public testing::Test {
  protected:
    SwayTest() {
        m_deliveries.onFailure = [this](const Error& reason) { m_failure = reason.description; };
    }

    template <typename Condition>
    static bool eventually(Condition condition) {
        return waitUntil([&] {
            QCoreApplication::processEvents();
            return condition();
        });
    }
    void openTerminal() {
        m_terminal = std::make_unique<ChildProcess>(
            m_sway.command(
                {"foot", "sh", "-c", "stty raw -echo; cd \"$XDG_RUNTIME_DIR\"; exec cat >typed"}),
            m_sway.options("foot.log"));
        ASSERT_TRUE(eventually([&] { return std::filesystem::exists(m_sway.folder() / "typed"); }));
        ASSERT_TRUE(eventually([&] {
            return m_sway.swaymsg({"-t", "get_tree"}).find("\"app_id\": \"foot\"") !=
                   std::string::npos;
        }));
    }
    std::string typed() const {
        return readFile(m_sway.folder() / "typed", 8'000'000).value_or("");
    }
    void paste(const std::string& what) {
        m_deliveries.await([this, what] {
            m_pasteboard->setString(what);
            m_deliveries.paste();
        });
    }
    /// As another program reads it.
    std::string pasteboard(const char* selection) const {
        const std::string command = std::string("timeout 10 wl-paste --no-newline ") + selection;
        return outputOf(m_sway.command({"sh", "-c", command + " || true"}),
                        {m_sway.environment(), {}});
    }

    int m_argumentCount = 1;
    char m_name[5] = "test";
    char* m_arguments[2] = {m_name, nullptr};
    QCoreApplication m_application{m_argumentCount, m_arguments};
    HeadlessCompositor m_sway{HeadlessCompositor::Kind::sway};
    std::unique_ptr<MainQueue> m_queue = makeQtMainQueue();
    std::shared_ptr<WaylandSession> m_session = openWaylandSession(m_sway.display());
    std::unique_ptr<Pasteboard> m_pasteboard = makeWaylandPasteboard(m_session, *m_queue);
    std::unique_ptr<PasteKeystroke> m_keystroke = makeVirtualKeyboardPaste(m_session);
    Deliveries m_deliveries{*m_queue, *m_pasteboard, *m_keystroke};
    std::optional<std::string> m_failure;
    std::unique_ptr<ChildProcess> m_terminal;
};

// Faults: the terminal gets the plain key, which makes it type an escape sequence; one of the two
// selections is not ours; a text overtakes the one before it; a large text is cut.
TEST_F(SwayTest, pastesOneTextAfterTheOther) {
    openTerminal();
    for (const char* one : {"déjà ", "vu ", "encore "})
        paste(one);
    EXPECT_TRUE(eventually([&] { return typed() == "déjà vu encore "; })) << typed();
    const std::string large(5'000'000, 'x');
    m_pasteboard->setString(large);
    EXPECT_TRUE(eventually([&] { return pasteboard("").size() == large.size(); }));
    EXPECT_EQ(pasteboard("--primary"), large);
    EXPECT_FALSE(m_failure) << *m_failure;
}

// Faults: a paste that waits for ever, or is said to be done, where nobody is left to take it.
TEST_F(SwayTest, saysThatTheCompositorIsGone) {
    m_pasteboard->setString("before");
    EXPECT_TRUE(eventually([&] { return pasteboard("") == "before"; }));
    m_sway.signal(SIGKILL);
    paste("lost");
    EXPECT_TRUE(eventually([&] { return m_failure.has_value(); }));
}

}  // namespace
}  // namespace nulo
