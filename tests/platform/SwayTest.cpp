#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QImage>
#include <csignal>
#include <memory>
#include <string>

#include "base/FileIO.h"
#include "desktop/OverlayPlacement.h"
#include "fakes/FakeMainQueue.h"
#include "pasting/Deliveries.h"
#include "platform/Backends.h"
#include "platform/WaylandBackends.h"
#include "rig/display/HeadlessCompositor.h"
#include "rig/process/WaitUntil.h"
#include "ui/overlay/WaveformWindow.h"

namespace nulo {
namespace {

/// sway with a terminal that has the focus, and this program as a client without a window.
class SwayTest : public testing::Test {
  protected:
    SwayTest() {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        m_application.emplace(m_argumentCount, m_arguments);
        m_queue = makeQtMainQueue();
        m_pasteboard = makeWaylandPasteboard(m_session, *m_queue);
        m_deliveries.emplace(*m_queue, systemClock(), *m_pasteboard, *m_keystroke);
        m_deliveries->onFailure = [this](const Error& reason) { m_failure = reason.description; };
    }

    template <typename Condition>
    static bool eventually(Condition condition) {
        return waitUntil(
            [&] {
                QCoreApplication::processEvents();
                return condition();
            },
            std::chrono::seconds(30));
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
        m_deliveries->await([this, what] {
            m_deliveries->copy(what);
            m_deliveries->paste();
        });
    }
    /// As another program reads it.
    std::string pasteboard(const char* selection) const {
        const std::string command = std::string("timeout 60 wl-paste --no-newline ") + selection;
        return outputOf(m_sway.command({"sh", "-c", command + " || true"}),
                        {m_sway.environment(), {}});
    }

    void pressKeys(std::vector<std::string> keys) {
        keys.insert(keys.begin(), {"timeout", "60", "wtype"});
        outputOf(m_sway.command(std::move(keys)), {m_sway.environment(), {}});
    }
    QImage screen() const {
        m_sway.screenshot(m_sway.folder() / "screen.png");
        return QImage((m_sway.folder() / "screen.png").c_str());
    }

    int m_argumentCount = 1;
    char m_name[5] = "test";
    char* m_arguments[2] = {m_name, nullptr};
    HeadlessCompositor m_sway{HeadlessCompositor::Kind::sway,
                              {.configuration = "output * bg #305070 solid_color\n"}};
    std::optional<QApplication> m_application;
    std::unique_ptr<MainQueue> m_queue;
    std::shared_ptr<WaylandSession> m_session = openWaylandSession(m_sway.display());
    std::unique_ptr<Pasteboard> m_pasteboard;
    std::unique_ptr<PasteKeystroke> m_keystroke = makeVirtualKeyboardPaste(m_session);
    std::optional<Deliveries> m_deliveries;
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

// Faults: a window that takes the text, a desktop without one, a clipboard manager and one that
// owns the clipboard from then on taken for one another; the hint for managers missing, or taken
// for a text.
TEST_F(SwayTest, seesThatTheTextIsTaken) {
    using Verdict = Deliveries::Receipt::Verdict;
    FakeMainQueue queue;
    m_deliveries.reset();
    m_pasteboard = makeWaylandPasteboard(m_session, *m_queue, true);
    m_deliveries.emplace(queue, systemClock(), *m_pasteboard, *m_keystroke);
    std::vector<Verdict> told;
    m_deliveries->onReceipt = [&](const auto& receipt) { told.push_back(receipt.verdict); };
    const auto verdict = [&](std::chrono::milliseconds wait = {}) {
        EXPECT_TRUE(eventually([&] {
            queue.advance(wait);
            return !told.empty();
        }));
        return std::exchange(told, {});
    };
    using testing::ElementsAre;
    m_deliveries->await([&] {
        m_deliveries->copy("text");
        EXPECT_TRUE(eventually([&] { return pasteboard("") == "text"; }));
        QCoreApplication::processEvents();
        m_deliveries->paste();
    });
    EXPECT_THAT(verdict(std::chrono::seconds(1)), ElementsAre(Verdict::notRead));
    EXPECT_EQ(pasteboard("-t x-kde-passwordManagerHint"), "secret");
    QCoreApplication::processEvents();
    queue.runPending();
    EXPECT_THAT(told, testing::IsEmpty());
    pasteboard("");
    EXPECT_THAT(verdict(), ElementsAre(Verdict::readLate));
    openTerminal();
    paste("taken");
    EXPECT_THAT(verdict(), ElementsAre(Verdict::read));
    m_terminal.reset();
    paste("replaced");
    const ChildProcess manager(m_sway.command({"wl-copy", "--foreground", "other"}),
                               m_sway.options("wl-copy.log"));
    EXPECT_TRUE(eventually([&] { return !m_pasteboard->holdsText(); }));
    EXPECT_THAT(verdict(std::chrono::seconds(1)), ElementsAre(Verdict::notSeen));
}

// Faults: a paste that waits for ever, or is said to be done, where nobody is left to take it.
TEST_F(SwayTest, saysThatTheCompositorIsGone) {
    m_pasteboard->setString("before");
    EXPECT_TRUE(eventually([&] { return pasteboard("") == "before"; }));
    m_sway.signal(SIGKILL);
    paste("lost");
    EXPECT_TRUE(eventually([&] { return m_failure.has_value(); }));
}

// Faults: a chord that is missed once sway has read its configuration anew; a Space that reaches
// the terminal; a chord that goes on when sway is gone.
TEST_F(SwayTest, tellsOfTheChord) {
    openTerminal();
    std::mutex mutex;
    std::string events;
    const auto told = [&] {
        const std::lock_guard lock(mutex);
        return events;
    };
    const auto note = [&](const KeyEvent& event) {
        const std::lock_guard lock(mutex);
        events += event.isSpace ? "space " : event.optionSet ? "option " : "end ";
        return EventFate::pass;
    };
    {
        const auto source = makeSwayBindings(
            m_sway.swaySocket(), [](std::string_view) {}, parsedChord("Super+Ctrl+D").value());
        ASSERT_TRUE(eventually([&] { return source->isTrusted(); }));
        const auto tap = source->createTap(note);
        pressKeys({"-M", "logo", "-M", "ctrl", "-P", "d", "-p", "d", "-m", "ctrl", "-m", "logo"});
        EXPECT_TRUE(eventually([&] { return told() == "option space end "; })) << told();
    }
    events.clear();
    const auto source = makeSwayBindings(m_sway.swaySocket(), [](std::string_view) {});
    ASSERT_TRUE(eventually([&] { return source->isTrusted(); }));
    const auto tap = source->createTap(note);
    const std::vector<std::string> chord = {"-M", "alt", "-P", "space", "-p", "space", "-m", "alt"};
    pressKeys(chord);
    EXPECT_TRUE(eventually([&] { return told() == "option space end "; })) << told();
    m_sway.swaymsg({"reload"});
    EXPECT_TRUE(eventually([&] {
        pressKeys(chord);
        return told().find("end option") != std::string::npos;
    }));
    EXPECT_EQ(typed(), "");
    const ChildProcess held(
        m_sway.command({"wtype", "-M", "alt", "-P", "space", "-s", "30000", "-p", "space"}),
        m_sway.options("wtype.log"));
    EXPECT_TRUE(eventually([&] { return told().ends_with("option space "); })) << told();
    m_sway.signal(SIGKILL);
    EXPECT_TRUE(eventually([&] { return told().ends_with("end ") && !source->isTrusted(); }));
}

// Faults: an overlay that is not seen, or below other windows, or not drawn anew; that has the
// keys.
TEST_F(SwayTest, showsTheOverlayAboveAllWindows) {
    openTerminal();
    m_sway.swaymsg({"fullscreen", "enable"});
    FakeClock clock;
    FakeMainQueue queue{&clock};
    const auto placement = makeLayerShellPlacement(m_session, *m_queue, true);
    Published<std::vector<float>> levels;
    WaveformWindow overlay(queue, clock, *placement);
    const QImage before = screen();
    overlay.show(levels);
    queue.advance(std::chrono::seconds(1));
    const QRect panel = overlay.window()->frame();
    EXPECT_EQ(panel, QRect(490, 660, 300, 60));
    const auto differs = [&](const QImage& from) {
        const QImage now = screen();
        return now.copy(panel) != from.copy(panel) && now.pixel(10, 10) == from.pixel(10, 10);
    };
    ASSERT_TRUE(eventually([&] { return differs(before); }));
    const QImage silent = screen();
    levels.set(std::vector<float>(40, 0.9f));
    EXPECT_TRUE(eventually([&] { return differs(silent); }));
    pressKeys({"a"});
    EXPECT_TRUE(eventually([&] { return typed() == "a"; }));
    overlay.showStreaming("");
    overlay.appendStreamingText("one two three");
    queue.advance(std::chrono::seconds(1));
    const QRect wide = overlay.window()->frame();
    EXPECT_EQ(wide.width(), 400);
    EXPECT_TRUE(eventually([&] {  // up to its border on either side
        const QImage now = screen();
        return now.pixel(wide.left() + 5, panel.center().y()) !=
               now.pixel(wide.left() - 40, panel.center().y());
    }));
    overlay.hide();
    queue.advance(std::chrono::seconds(1));
    EXPECT_TRUE(eventually([&] { return screen().copy(panel) == before.copy(panel); }));
}

}  // namespace
}  // namespace nulo
