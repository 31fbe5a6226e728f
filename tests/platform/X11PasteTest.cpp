#include <gmock/gmock.h>

#include <QGuiApplication>
#include <future>
#include <regex>

#include "base/FileIO.h"
#include "fakes/FakeMainQueue.h"
#include "pasting/Deliveries.h"
#include "pasting/InjectionGate.h"
#include "platform/Backends.h"
#include "platform/x11/Xcb.h"
#include "rig/display/VirtualDisplay.h"
#include "rig/display/XTestKeyboard.h"
#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"
#include "support/KeyLoggingWindow.h"
#include "support/QtProgram.h"
#include "support/SelectionClient.h"

namespace nulo {
namespace {

using testing::StartsWith;
using Key = XTestKeyboard::Key;

/// A desktop of its own: a keyboard that is the user's and not that of injected keys, which have
/// another layout until setxkbmap is run, and this program as the owner of the clipboard. There is
/// no window manager: openbox drops the focus for a moment when the server goes from one of the two
/// layouts to the other.
class X11PasteTest : public testing::Test {
  protected:
    X11PasteTest() {
        outputOf({"setxkbmap", "-device", "7", "dvorak"});
        setenv("QT_QPA_PLATFORM", "xcb", 1);
        m_program.emplace();
        m_queue = makeQtMainQueue();
        m_pasteboard = makeQtPasteboard();
        m_keystroke = makeX11PasteKeystroke(m_gate);
        m_deliveries =
            std::make_unique<Deliveries>(*m_queue, systemClock(), *m_pasteboard, *m_keystroke);
        m_deliveries->onFailure = [](const Error& reason) { ADD_FAILURE() << reason.description; };
    }

    /// Another program's window, with the focus.
    std::unique_ptr<ChildProcess> openTextWindow(const std::string& windowClass = "notes") {
        auto window = std::make_unique<ChildProcess>(
            std::vector<std::string>{NULO_BINARY_FOLDER "/nulo-text-window", "--class", windowClass,
                                     "--file", m_text, "--keys", m_folder / "keys"});
        EXPECT_TRUE(processUntil([&] { return std::filesystem::exists(m_text); })) << "no focus";
        return window;
    }
    std::string keys() const { return readFile(m_folder / "keys", 1 << 20).value_or(""); }
    bool hasEndedTheChord() const {
        return processUntil([&] { return keys().ends_with("release Control\n"); });
    }
    void paste(const std::string& what) {
        m_deliveries->await([this, what] {
            m_deliveries->copy(what);
            m_deliveries->paste();
        });
    }
    bool arrives(const std::string& whole) const {
        return processUntil([&] { return readFile(m_text, 1 << 20) == whole; });
    }
    /// Nobody's, as far as the server knows.
    bool isAnyKeyDown() { return !m_keyboard.keysDown().empty(); }
    void press(Key key) { m_keyboard.press(key, XTestKeyboard::Device::own); }
    void release(Key key) { m_keyboard.release(key, XTestKeyboard::Device::own); }
    void tap(Key key) { m_keyboard.tap(key, XTestKeyboard::Device::own); }

    const VirtualDisplay m_display;
    XTestKeyboard m_keyboard;
    TemporaryFolder m_folder;
    const std::filesystem::path m_text = m_folder / "text";
    std::optional<QtProgram<QGuiApplication>> m_program;
    std::unique_ptr<MainQueue> m_queue;
    InjectionGate m_gate;
    std::unique_ptr<Pasteboard> m_pasteboard;
    std::unique_ptr<PasteKeystroke> m_keystroke;
    std::unique_ptr<Deliveries> m_deliveries;
};

// Faults: keys are looked up in the layout of the wrong device, Caps Lock spoils the chord, a key
// stays down, a text overtakes the one before it; empty text leaves the old one to be pasted; text
// larger than one X request is cut.
TEST_F(X11PasteTest, pastesOneTextAfterTheOther) {
    const auto window = openTextWindow();
    m_pasteboard->setString("old");
    paste("");
    EXPECT_TRUE(hasEndedTheChord());
    EXPECT_TRUE(arrives(""));
    m_gate.setKeyboardHeld(true);
    for (const char* one : {"déjà ", "vu ", "encore "})
        paste(one);
    m_gate.setKeyboardHeld(false);
    EXPECT_TRUE(arrives("déjà vu encore "));
    tap(Key::capsLock);
    std::string large = "€";
    while (large.size() < 600'000)
        large += "Une longue dictée, encore et encore. ";
    paste(large);
    EXPECT_TRUE(arrives("déjà vu encore " + large)) << keys();
    EXPECT_TRUE(hasEndedTheChord() && !isAnyKeyDown()) << keys();
}

// Faults: Alt joins the chord, or is pressed again on the user's behalf, or is left down; keys go
// out while the tap holds the keyboard, or never again; the end waits for the tap.
TEST_F(X11PasteTest, waitsForHeldKeysAndForTheTap) {
    const auto window = openTextWindow();
    std::string held;
    for (const Key key : {Key::altLeft, Key::controlLeft, Key::superLeft}) {
        press(key);
        paste("held ");
        held += "held ";
        EXPECT_TRUE(arrives(held)) << key;
        EXPECT_FALSE(isAnyKeyDown()) << key;
        release(key);
    }
    press(Key::altLeft);
    press(Key::controlLeft);
    paste("let go ");
    release(Key::controlLeft);
    release(Key::altLeft);
    EXPECT_TRUE(arrives(held + "let go "));
    EXPECT_TRUE(hasEndedTheChord() && !isAnyKeyDown()) << keys();
    EXPECT_EQ(keys().find("Alt+V"), std::string::npos);

    const std::string before = keys();
    m_gate.setKeyboardHeld(true);
    paste("text");
    tap(Key::a);
    ASSERT_TRUE(arrives(held + "let go a"));
    EXPECT_TRUE(processUntil([&] { return keys() == before + "press A\nrelease A\n"; })) << keys();
    m_gate.setKeyboardHeld(false);
    EXPECT_TRUE(arrives(held + "let go atext"));
    m_gate.setKeyboardHeld(true);
    m_keystroke->post({});
    m_keystroke.reset();
    tap(Key::a);
    EXPECT_TRUE(arrives(held + "let go atexta"));
    EXPECT_FALSE(isAnyKeyDown());
}

// Faults: the key of v is assumed; a layout without v pastes nothing, or keeps the borrowed key.
TEST_F(X11PasteTest, pastesInAnyLayout) {
    const auto window = openTextWindow();
    std::string expected;
    for (const std::string layout : {"us", "fr", "de", "dvorak", "ru", "gr"}) {
        outputOf({"setxkbmap", layout});
        paste(layout + " ");
        expected += layout + " ";
        ASSERT_TRUE(arrives(expected)) << layout;
    }
    EXPECT_TRUE(processUntil([] {
        return !std::regex_search(outputOf({"xmodmap", "-pke"}), std::regex(" v( |\n)"));
    }));
    EXPECT_FALSE(isAnyKeyDown());
    // v is in the group that is not in use: it must be found there, and the group given back.
    outputOf({"setxkbmap", "us,ru", "-option", "grp:caps_toggle"});
    tap(Key::capsLock);
    paste("two ");
    expected += "two ";
    ASSERT_TRUE(arrives(expected));
    tap(Key::v);
    EXPECT_TRUE(arrives(expected + "м"));
}

// Fault: Ctrl+V goes to a terminal, or Shift+Insert finds the primary selection without the text.
TEST_F(X11PasteTest, sendsTerminalsTheirOwnChord) {
    outputOf({"setxkbmap", "us"});
    {
        const auto konsole = openTextWindow("konsole");
        paste("x");
        EXPECT_TRUE(processUntil([&] { return keys().find("Ctrl+Shift+V") != std::string::npos; }));
    }
    const ChildProcess windowManager({"openbox"});  // puts windows into frames of its own
    const auto root = [](const std::string& property) {
        return processUntil([&] {
            return std::regex_search(outputOf({"xprop", "-root", property}),
                                     std::regex("# 0x[1-9a-f]"));
        });
    };
    ASSERT_TRUE(root("_NET_SUPPORTING_WM_CHECK"));
    const auto typed = m_folder / "typed";
    const ChildProcess xterm(
        {"xterm", "-u8", "-e", "sh", "-c", "exec cat > '" + typed.string() + "'"},
        {{"LC_ALL=C.UTF-8"}, {}});
    ASSERT_TRUE(processUntil([&] { return std::filesystem::exists(typed); }));
    ASSERT_TRUE(root("_NET_ACTIVE_WINDOW"));
    paste("déjà vu\n");
    EXPECT_TRUE(processUntil([&] { return readFile(typed, 1000) == "déjà vu\n"; }));
    EXPECT_FALSE(isAnyKeyDown());
}

// Faults: a program that pastes, one that takes no paste, a clipboard manager and one that owns the
// clipboard from then on taken for one another; the hint for managers missing, or taken for a text.
TEST_F(X11PasteTest, seesWhoTakesTheText) {
    using Verdict = Deliveries::Receipt::Verdict;
    FakeMainQueue queue;
    m_deliveries.reset();
    m_pasteboard = makeQtPasteboard({.isPrivate = true});
    m_deliveries = std::make_unique<Deliveries>(queue, systemClock(), *m_pasteboard, *m_keystroke);
    std::vector<Verdict> told;
    m_deliveries->onReceipt = [&](const auto& receipt) { told.push_back(receipt.verdict); };
    const auto verdict = [&](std::chrono::milliseconds wait = {}) {
        EXPECT_TRUE(processUntil([&] {
            queue.advance(wait);
            return !told.empty();
        }));
        return std::exchange(told, {});
    };
    using testing::ElementsAre;
    SelectionClient manager;
    SelectionClient other;
    {
        KeyLoggingWindow takesNoPaste;
        m_deliveries->await([&] {
            m_deliveries->copy("déjà vu");
            EXPECT_EQ(manager.ask(), "déjà vu");
            m_deliveries->paste();
        });
        ASSERT_TRUE(processUntil([&] {
            queue.runPending();
            return std::ranges::count(takesNoPaste.keys(), '-') == 2;
        }));
        EXPECT_EQ(manager.ask(), "déjà vu");
        EXPECT_EQ(other.ask("x-kde-passwordManagerHint"), "secret");
        EXPECT_NE(other.ask("TARGETS"), "");
        EXPECT_THAT(verdict(std::chrono::seconds(1)), ElementsAre(Verdict::notRead));
        other.ask();
        EXPECT_THAT(verdict(), ElementsAre(Verdict::readLate));
        paste("replaced");
        manager.take("PRIMARY");
        EXPECT_THAT(verdict(std::chrono::seconds(1)), ElementsAre(Verdict::notSeen));
    }
    const auto window = openTextWindow();
    paste("taken");
    EXPECT_THAT(verdict(), ElementsAre(Verdict::read));
}

// Faults: a lost or missing server ends the program or the worker, or is passed over in silence.
TEST_F(X11PasteTest, saysWhyItCouldNotPaste) {
    const auto failure = [](PasteKeystroke& keystroke) {
        std::promise<std::string> reason;
        keystroke.post({.onEnd = [&](const Outcome& outcome) {
            reason.set_value(outcome ? "sent" : outcome.error().description);
        }});
        return reason.get_future().get();
    };
    const XcbConnection connection(xcb_connect(nullptr, nullptr));
    xcb_set_input_focus(connection.get(), XCB_INPUT_FOCUS_NONE, XCB_NONE, XCB_CURRENT_TIME);
    NULO_XCB(xcb_get_input_focus, connection.get());
    EXPECT_THAT(failure(*m_keystroke), StartsWith("no window has the keyboard focus"));

    VirtualDisplay other;
    const auto keystroke = makeX11PasteKeystroke(m_gate);
    failure(*keystroke);
    other.kill();
    EXPECT_THAT(failure(*keystroke), StartsWith("the X server cannot be reached"));
    unsetenv("DISPLAY");
    EXPECT_THAT(failure(*makeX11PasteKeystroke(m_gate)), StartsWith("there is no X server"));
}

}  // namespace
}  // namespace nulo
