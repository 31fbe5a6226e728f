// The program in Wayland sessions, used as a person would.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "rig/desktop/DesktopSession.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/WaitUntil.h"
#include "support/KdePortal.h"
#include "support/QtProgram.h"

namespace nulo {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using Screen = DesktopSession::Screen;

struct Session {
    const char* name;
    Screen screen;
    const char* keyTap;  // what the doctor says of each
    const char* clipboard;
    const char* paste;
    const char* overlay;
};

void PrintTo(const Session& session, std::ostream* out) {
    *out << session.name;
}

class WaylandDictation : public testing::TestWithParam<Session> {
  protected:
    /// What a KWin or Mutter without its desktop lacks.
    void bringPortal() {
        m_desktop.textProgram = NULO_TEST_SUPPORT "/gtk-text-window.py";
        if (GetParam().screen == Screen::kwin) {
            m_kdePortal.emplace(m_desktop.compositor(), m_desktop.bus());
            m_keyboard.emplace(m_desktop.compositor().display());
            m_desktop.onChord = [this](bool isDown) {
                m_keyboard->key(KwinKeyboard::alt, isDown);
                m_keyboard->key(KwinKeyboard::space, isDown);
            };
        }
        if (GetParam().screen == Screen::mutter) {
            m_mutterPortal.emplace(
                std::vector<std::string>{NULO_TEST_SUPPORT "/mutter-portal.py"},
                ChildProcess::Options{m_desktop.environment(), m_desktop.home() / "portal.log"});
            m_desktop.onChord = [this](bool isDown) {
                m_mutterPortal->signal(isDown ? SIGUSR1 : SIGUSR2);
            };
        }
    }

    QtProgram<> m_program;
    ScriptedHttpServer m_service{[](const ReceivedRequest&, auto& client) {
        client.send(
            httpResponse(200,
                         "data: {\"choices\":[{\"delta\":{\"content\":\"Tout va bien.\"}}]}\n\n"
                         "data: [DONE]\n\n"));
    }};
    DesktopSession m_desktop{DesktopSession::Launch::later, GetParam().screen};
    std::optional<KdePortal> m_kdePortal;
    std::optional<KwinKeyboard> m_keyboard;
    std::optional<ChildProcess> m_mutterPortal;
};

// Faults: a toolkit that ends the program for want of an X server; parts that are X11's; a session
// whose parts do not fit together; keyboards that others bring and take away; a doctor that tells
// of others than those that serve.
TEST_P(WaylandDictation, goesAllTheWay) {
    bringPortal();
    m_desktop.writeServiceFile(m_service.url());
    m_desktop.startTextWindow();
    m_desktop.startNulo();
    const Session& session = GetParam();
    EXPECT_THAT(m_desktop.startNuloAgain({"--doctor"}).second,
                AllOf(HasSubstr(session.keyTap), HasSubstr(session.clipboard),
                      HasSubstr(session.paste), HasSubstr(session.overlay)));
    for (const std::string text : {"Tout va bien.", "Tout va bien.Tout va bien."}) {
        m_desktop.dictate(recordedSpeech().file.parent_path() /
                          "sense_and_sensibility_01_austen_64kb-0880.wav");
        EXPECT_TRUE(waitUntil([&] { return m_desktop.text() == text; })) << m_desktop.text();
    }
    if (session.screen != Screen::mutter) {  // which no program without the focus may ask
        EXPECT_EQ(m_desktop.clipboard(), "Tout va bien.");
    }
    EXPECT_EQ(m_desktop.stopNulo(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    , WaylandDictation,
    testing::Values(Session{"Sway", Screen::sway, "sway's own bindings", "by data-control",
                            "by a virtual keyboard", "a layer above all windows"},
                    Session{"SwayWithXwayland", Screen::swayWithXwayland, "sway's own bindings",
                            "by data-control", "by a virtual keyboard",
                            "a layer above all windows"},
                    Session{"Kwin", Screen::kwin, "by its portal", "by data-control",
                            "by KWin's fake input", "through XWayland"},
                    Session{"Mutter", Screen::mutter, "by its portal", "through XWayland",
                            "by the desktop's portal", "through XWayland"}));

}  // namespace
}  // namespace nulo
