#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include <QGuiApplication>
#include <cstdlib>
#include <future>
#include <memory>
#include <regex>
#include <string>

#include "base/FileIO.h"
#include "pasting/Deliveries.h"
#include "pasting/InjectionGate.h"
#include "platform/Backends.h"
#include "rig/display/XTestKeyboard.h"
#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"
#include "support/InputTestServer.h"

namespace nulo {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

/// A desktop of its own: a keyboard that is the user's and not XTEST's, and this program as the
/// owner of the clipboard. Injected keys have another layout than the keyboard's until setxkbmap is
/// run. There is no window manager: openbox drops the focus for a moment when the server goes from
/// one of the two layouts to the other.
class X11PasteTest : public testing::Test {
  protected:
    X11PasteTest() {
        setenv("DISPLAY", m_server.display().c_str(), 1);
        setenv("QT_QPA_PLATFORM", "xcb", 1);
        m_application = std::make_unique<QGuiApplication>(m_argumentCount, m_arguments);
        m_queue = makeQtMainQueue();
        m_pasteboard = makeQtPasteboard();
        m_keystroke = makeX11PasteKeystroke(m_gate);
        m_deliveries = std::make_unique<Deliveries>(*m_queue, *m_pasteboard, *m_keystroke);
        m_deliveries->onFailure = [](const Error& reason) { ADD_FAILURE() << reason.description; };
    }

    /// Serves the clipboard meanwhile.
    template <typename Condition>
    static bool eventually(Condition condition) {
        return waitUntil([&] {
            QCoreApplication::processEvents();
            return condition();
        });
    }

    /// Another program's window, with the focus.
    std::unique_ptr<ChildProcess> openTextWindow(const std::string& windowClass = "notes") {
        auto window = std::make_unique<ChildProcess>(
            std::vector<std::string>{NULO_BINARY_FOLDER "/nulo-text-window", "--class", windowClass,
                                     "--file", m_text, "--keys", m_keys});
        if (!eventually([&] { return std::filesystem::exists(m_text); }))
            ADD_FAILURE() << "the text window did not get the focus";
        return window;
    }

    static std::string contentOf(const std::filesystem::path& file) {
        return readFile(file, 4'000'000).value_or("");
    }
    std::string text() const { return contentOf(m_text); }
    std::string keys() const { return contentOf(m_keys); }
    void paste(const std::string& what) {
        m_deliveries->await([this, what] {
            m_pasteboard->setString(what);
            m_deliveries->paste();
        });
    }
    bool arrives(const std::string& whole) {
        return eventually([&] { return text() == whole; });
    }
    /// Nobody's, as far as the server knows.
    static bool isAnyKeyDown() { return !XTestKeyboard().keysDown().empty(); }

    InputTestServer m_server{"dvorak"};
    TemporaryFolder m_folder;
    const std::filesystem::path m_text = m_folder / "text";
    const std::filesystem::path m_keys = m_folder / "keys";
    int m_argumentCount = 1;
    char m_name[5] = "test";
    char* m_arguments[2] = {m_name, nullptr};
    std::unique_ptr<QGuiApplication> m_application;
    std::unique_ptr<MainQueue> m_queue;
    InjectionGate m_gate;
    std::unique_ptr<Pasteboard> m_pasteboard;
    std::unique_ptr<PasteKeystroke> m_keystroke;
    std::unique_ptr<Deliveries> m_deliveries;
};

// Faults: keys are looked up in the layout of the wrong device, Caps Lock spoils the chord, a key
// stays down, a text overtakes the one before it.
TEST_F(X11PasteTest, pastesOneTextAfterTheOther) {
    const auto window = openTextWindow();
    m_gate.setKeyboardHeld(true);
    for (const char* one : {"déjà ", "vu ", "encore "})
        paste(one);
    m_gate.setKeyboardHeld(false);
    EXPECT_TRUE(arrives("déjà vu encore ")) << text();
    m_server.tap(InputTestServer::capsLock);
    paste("€");
    EXPECT_TRUE(arrives("déjà vu encore €")) << keys();
    EXPECT_TRUE(eventually([&] { return keys().ends_with("release Control\n"); })) << keys();
    EXPECT_FALSE(isAnyKeyDown());
}

// Faults: Alt joins the chord, or is pressed again on the user's behalf, or is left down.
TEST_F(X11PasteTest, keepsHeldModifiersOutOfTheChord) {
    const auto window = openTextWindow();
    m_server.press(InputTestServer::altLeft);
    paste("held ");
    EXPECT_TRUE(arrives("held "));
    EXPECT_FALSE(isAnyKeyDown());
    m_server.release(InputTestServer::altLeft);
    EXPECT_FALSE(isAnyKeyDown());

    m_server.press(InputTestServer::altLeft);
    m_server.press(InputTestServer::controlLeft);
    paste("let go");
    m_server.release(InputTestServer::controlLeft);
    m_server.release(InputTestServer::altLeft);
    EXPECT_TRUE(arrives("held let go"));
    EXPECT_TRUE(eventually([&] { return keys().ends_with("release Control\n"); })) << keys();
    EXPECT_FALSE(isAnyKeyDown());
    EXPECT_THAT(keys(), Not(HasSubstr("Alt+V")));
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
    EXPECT_TRUE(eventually([] {
        return !std::regex_search(outputOf({"xmodmap", "-pke"}), std::regex(" v( |\n)"));
    }));
    EXPECT_FALSE(isAnyKeyDown());

    // v is in the group that is not in use: it must be found there, and the group given back.
    outputOf({"setxkbmap", "us,ru", "-option", "grp:caps_toggle"});
    m_server.tap(InputTestServer::capsLock);
    paste("two ");
    expected += "two ";
    ASSERT_TRUE(arrives(expected));
    m_server.tap(InputTestServer::keyV);
    EXPECT_TRUE(arrives(expected + "м"));
}

// Fault: Ctrl+V goes to a terminal, or Shift+Insert finds the primary selection without the text.
TEST_F(X11PasteTest, sendsTerminalsTheirOwnChord) {
    outputOf({"setxkbmap", "us"});
    {
        const auto konsole = openTextWindow("konsole");
        paste("x");
        EXPECT_TRUE(eventually([&] { return keys().find("Ctrl+Shift+V") != std::string::npos; }))
            << keys();
    }
    const ChildProcess windowManager({"openbox"});  // puts windows into frames of its own
    const auto root = [](const std::string& property) {
        return std::regex_search(outputOf({"xprop", "-root", property}),
                                 std::regex("# 0x[1-9a-f]"));
    };
    ASSERT_TRUE(eventually([&] { return root("_NET_SUPPORTING_WM_CHECK"); }));
    const auto typed = m_folder / "typed";
    const ChildProcess xterm(
        {"xterm", "-u8", "-e", "sh", "-c", "exec cat > '" + typed.string() + "'"},
        {{"LC_ALL=C.UTF-8"}, {}});
    ASSERT_TRUE(eventually([&] { return std::filesystem::exists(typed); }));
    ASSERT_TRUE(eventually([&] { return root("_NET_ACTIVE_WINDOW"); }));
    paste("déjà vu\n");
    EXPECT_TRUE(eventually([&] { return contentOf(typed) == "déjà vu\n"; })) << contentOf(typed);
    EXPECT_FALSE(isAnyKeyDown());
}

// Faults: keys go out while the tap holds the keyboard, or never again; the end waits for the tap.
TEST_F(X11PasteTest, waitsForTheTapToLetGoOfTheKeyboard) {
    const auto window = openTextWindow();
    m_gate.setKeyboardHeld(true);
    paste("text");
    m_server.tap(InputTestServer::keyA);
    ASSERT_TRUE(arrives("a"));
    EXPECT_TRUE(eventually([&] { return keys() == "press A\nrelease A\n"; })) << keys();
    m_gate.setKeyboardHeld(false);
    EXPECT_TRUE(arrives("atext"));

    m_gate.setKeyboardHeld(true);
    m_keystroke->post({});
    m_keystroke.reset();
    m_server.tap(InputTestServer::keyA);
    EXPECT_TRUE(arrives("atexta"));
    EXPECT_FALSE(isAnyKeyDown());
}

// Faults: empty text leaves the old one to be pasted; text larger than one X request is cut.
TEST_F(X11PasteTest, ownsBothSelectionsWhateverTheText) {
    const auto window = openTextWindow();
    m_pasteboard->setString("old");
    paste("");
    std::string large;
    while (large.size() < 3'000'000)
        large += "Une longue dictée, encore et encore.\n";
    ASSERT_TRUE(eventually([&] { return keys().ends_with("release Control\n"); }));
    EXPECT_EQ(text(), "");
    paste(large);
    EXPECT_TRUE(arrives(large)) << text().size();
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
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    xcb_set_input_focus(connection, XCB_INPUT_FOCUS_NONE, XCB_NONE, XCB_CURRENT_TIME);
    std::free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
    EXPECT_THAT(failure(*m_keystroke), StartsWith("no window has the keyboard focus"));
    xcb_disconnect(connection);

    auto server = std::make_unique<InputTestServer>();
    setenv("DISPLAY", server->display().c_str(), 1);
    InjectionGate gate;
    auto keystroke = makeX11PasteKeystroke(gate);
    failure(*keystroke);
    server.reset();
    EXPECT_THAT(failure(*keystroke), StartsWith("the X server cannot be reached"));
    unsetenv("DISPLAY");
    EXPECT_THAT(failure(*makeX11PasteKeystroke(gate)), StartsWith("there is no X server"));
}

}  // namespace
}  // namespace nulo
