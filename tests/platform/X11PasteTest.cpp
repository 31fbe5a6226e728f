#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include <QGuiApplication>
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>

#include "fakes/PrintedLines.h"
#include "pasting/InjectionGate.h"
#include "platform/Backends.h"
#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"
#include "support/InputTestServer.h"

namespace nulo {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string contentOf(const std::filesystem::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

/// A desktop of its own: a keyboard that is the user's and not XTEST's, and this program as the
/// owner of the clipboard. Injected keys have another layout than the keyboard's until setxkbmap is
/// run. There is no window manager: openbox drops the focus for a moment when the server goes from
/// one of the two layouts to the other.
class X11PasteTest : public testing::Test {
  protected:
    X11PasteTest() {
        setenv("DISPLAY", m_server.display().c_str(), 1);
        setenv("QT_QPA_PLATFORM", "xcb", 1);
        m_connection = xcb_connect(nullptr, nullptr);
        m_application = std::make_unique<QGuiApplication>(m_argumentCount, m_arguments);
        m_pasteboard = makeQtPasteboard();
        m_keystroke = makeX11PasteKeystroke(m_gate);
    }
    ~X11PasteTest() override {
        m_keystroke.reset();
        xcb_disconnect(m_connection);
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

    std::string text() const { return contentOf(m_text); }
    std::string keys() const { return contentOf(m_keys); }
    void paste(const std::string& what) {
        m_pasteboard->setString(what);
        m_keystroke->post();
    }
    ::testing::AssertionResult arrives(const std::string& whole) {
        if (eventually([&] { return text() == whole; }))
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << "the window holds: " << text() << "\nkeys:\n"
                                             << keys();
    }

    /// Whether the server takes any key for being down, whoever pressed it.
    bool isAnyKeyDown() const {
        xcb_query_keymap_reply_t* reply =
            xcb_query_keymap_reply(m_connection, xcb_query_keymap(m_connection), nullptr);
        bool down = false;
        for (const std::uint8_t byte : reply->keys)
            down = down || byte != 0;
        std::free(reply);
        return down;
    }
    /// The first name of the focused window's WM_CLASS.
    std::string focusedInstance() const {
        auto* focus =
            xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr);
        auto* reply =
            xcb_get_property_reply(m_connection,
                                   xcb_get_property(m_connection, 0, focus->focus,
                                                    XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, 64),
                                   nullptr);
        std::string instance;
        if (reply && xcb_get_property_value_length(reply) > 0)
            instance = static_cast<const char*>(xcb_get_property_value(reply));
        std::free(focus);
        std::free(reply);
        return instance;
    }
    bool hasWindowManager() const {
        constexpr std::string_view name = "_NET_SUPPORTING_WM_CHECK";
        auto* atom = xcb_intern_atom_reply(
            m_connection, xcb_intern_atom(m_connection, 0, name.size(), name.data()), nullptr);
        const auto root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
        auto* reply = xcb_get_property_reply(
            m_connection,
            xcb_get_property(m_connection, 0, root, atom->atom, XCB_ATOM_WINDOW, 0, 1), nullptr);
        const bool found = xcb_get_property_value_length(reply) > 0;
        std::free(atom);
        std::free(reply);
        return found;
    }
    bool hasKeyFor(xcb_keysym_t symbol) const {
        const auto* setup = xcb_get_setup(m_connection);
        const auto count = static_cast<std::uint8_t>(setup->max_keycode - setup->min_keycode + 1);
        auto* reply = xcb_get_keyboard_mapping_reply(
            m_connection, xcb_get_keyboard_mapping(m_connection, setup->min_keycode, count),
            nullptr);
        const xcb_keysym_t* first = xcb_get_keyboard_mapping_keysyms(reply);
        const xcb_keysym_t* last = first + xcb_get_keyboard_mapping_keysyms_length(reply);
        const bool found = std::find(first, last, symbol) != last;
        std::free(reply);
        return found;
    }

    InputTestServer m_server{{1, "dvorak"}};
    TemporaryFolder m_folder;
    const std::filesystem::path m_text = m_folder / "text";
    const std::filesystem::path m_keys = m_folder / "keys";
    int m_argumentCount = 1;
    char m_name[5] = "test";
    char* m_arguments[2] = {m_name, nullptr};
    xcb_connection_t* m_connection = nullptr;
    std::unique_ptr<QGuiApplication> m_application;
    PrintedLines m_printed;
    InjectionGate m_gate;
    std::unique_ptr<Pasteboard> m_pasteboard;
    std::unique_ptr<PasteKeystroke> m_keystroke;
};

// Faults: keys are looked up in the layout of the wrong device, requests are merged or lost, Caps
// Lock spoils the chord, a key stays down.
TEST_F(X11PasteTest, pastesIntoTheFocusedWindow) {
    const auto window = openTextWindow();
    paste("déjà vu ");
    m_keystroke->post();
    EXPECT_TRUE(arrives("déjà vu déjà vu "));
    m_server.tap(InputTestServer::capsLock);
    paste("€");
    EXPECT_TRUE(arrives("déjà vu déjà vu €"));
    EXPECT_TRUE(eventually([&] { return keys().ends_with("release Control\n"); })) << keys();
    EXPECT_FALSE(isAnyKeyDown());
    EXPECT_THAT(m_printed.lines(), ElementsAre());
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
    EXPECT_TRUE(eventually([&] { return !hasKeyFor('v'); }));
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
    ASSERT_TRUE(eventually([&] { return hasWindowManager(); }));
    const auto typed = m_folder / "typed";
    const ChildProcess xterm(
        {"xterm", "-u8", "-e", "sh", "-c", "exec cat > '" + typed.string() + "'"},
        {{"LC_ALL=C.UTF-8"}, {}});
    ASSERT_TRUE(eventually([&] { return std::filesystem::exists(typed); }));
    ASSERT_TRUE(eventually([&] { return focusedInstance() == "xterm"; }));
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
    m_keystroke->post();
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
    EXPECT_TRUE(eventually([&] { return text() == large; })) << text().size();
    EXPECT_THAT(m_printed.lines(), ElementsAre());
}

// Faults: a lost or missing server ends the program or the worker, or is passed over in silence.
TEST_F(X11PasteTest, saysInOneLineWhyItCouldNotPaste) {
    const auto failsWith = [&](const std::string& reason) {
        const auto before = m_printed.lines().size();
        m_keystroke->post();
        EXPECT_TRUE(eventually([&] { return m_printed.lines().size() > before; }));
        EXPECT_THAT(m_printed.lines().back(), StartsWith("Could not paste: " + reason));
    };
    xcb_set_input_focus(m_connection, XCB_INPUT_FOCUS_NONE, XCB_NONE, XCB_CURRENT_TIME);
    std::free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    failsWith("no window has the keyboard focus");

    auto server = std::make_unique<InputTestServer>();
    setenv("DISPLAY", server->display().c_str(), 1);
    InjectionGate gate;
    m_keystroke = makeX11PasteKeystroke(gate);
    m_keystroke->post();
    server.reset();
    failsWith("the X server cannot be reached");

    unsetenv("DISPLAY");
    m_keystroke = makeX11PasteKeystroke(gate);
    failsWith("there is no X server");
    m_keystroke.reset();  // before its gate
}

}  // namespace
}  // namespace nulo
