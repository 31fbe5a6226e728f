// The program in a Wayland session, used as a person would.

#include <gtest/gtest.h>

#include "rig/desktop/DesktopSession.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

class SwayDictation : public testing::TestWithParam<DesktopSession::Screen> {};

// Faults: a toolkit that ends the program for want of an X server; parts that are X11's.
TEST_P(SwayDictation, goesAllTheWay) {
    ScriptedHttpServer service([](const ReceivedRequest&, auto& client) {
        client.send(
            httpResponse(200,
                         "data: {\"choices\":[{\"delta\":{\"content\":\"Tout va bien.\"}}]}\n\n"
                         "data: [DONE]\n\n"));
    });
    DesktopSession desktop(DesktopSession::Launch::later, GetParam());
    desktop.writeServiceFile(service.url());
    desktop.startTextWindow();
    desktop.startNulo();
    desktop.dictate(recordedSpeech().file.parent_path() /
                    "sense_and_sensibility_01_austen_64kb-0880.wav");
    EXPECT_TRUE(waitUntil([&] { return desktop.text() == "Tout va bien."; })) << desktop.text();
    EXPECT_EQ(desktop.clipboard(), "Tout va bien.");
    EXPECT_EQ(desktop.stopNulo(), 0);
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutXwayland, SwayDictation,
                         testing::Values(DesktopSession::Screen::sway,
                                         DesktopSession::Screen::swayWithXwayland));

}  // namespace
}  // namespace nulo
