// The whole road, on real parts, where nobody sits: a virtual desktop with a panel, a recorded
// voice heard by a virtual microphone, the chord really pressed, the words read out of another
// program's window, the menu opened by a click on the panel's icon.
//
//   nulo-demo FOLDER          leaves pictures of the screen in FOLDER
//   nulo-demo FOLDER sway     the same in sway, which has no panel here; the words go to a terminal

#include <QCoreApplication>
#include <QRgb>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

#include "rig/desktop/DesktopPanel.h"
#include "rig/desktop/DesktopSession.h"
#include "rig/desktop/Screenshot.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

/// How many of the spoken words stand in the text, in their order, without regard to case.
int wordsInOrder(std::string text, const std::string& spoken) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    std::istringstream words(spoken);
    std::size_t at = 0;
    int count = 0;
    for (std::string word; words >> word;) {
        const std::size_t found = text.find(word, at);
        if (found == std::string::npos)
            continue;
        at = found + word.size();
        ++count;
    }
    return count;
}

void require(bool condition, const char* failure) {
    if (!condition)
        throw std::runtime_error(failure);
}

/// How much of the overlay, which is below the text window, is as light as its words alone are.
int lightPixels(const QImage& screen) {
    int count = 0;
    for (int y = screen.height() * 3 / 4; y < screen.height(); ++y)
        for (int x = 0; x < screen.width(); ++x)
            count += qGray(screen.pixel(x, y)) > 180;
    return count;
}

/// The words are in the overlay for four tenths of a second: takes pictures of the screen until
/// they have gone again, and keeps the one with the most of them.
QImage pictureOfTheWords(const DesktopSession& desktop) {
    constexpr int fewWords = 200;
    QImage best;
    int most = 0;
    waitUntil(
        [&] {
            const QImage screen = desktop.picture();
            const int light = lightPixels(screen);
            if (light > most) {
                most = light;
                best = screen;
            }
            return most > fewWords && light < fewWords;
        },
        std::chrono::seconds(20));
    require(most > fewWords, "No words were seen in the overlay.");
    return best;
}

int demonstrate(const std::filesystem::path& pictures, DesktopSession::Screen screen) {
    std::filesystem::create_directories(pictures);
    const RecordedSpeech speech = recordedSpeech();
    const CompanionProcess companion;
    DesktopSession desktop(DesktopSession::Launch::later, screen);
    desktop.writeServiceFile(companion.baseURL());
    std::optional<DesktopPanel> panel;
    if (screen == DesktopSession::Screen::x11)
        panel.emplace(desktop);
    desktop.startTextWindow();
    desktop.startNulo();
    require(!panel || panel->waitForIcon(DesktopPanel::Icon::idle),
            "The panel did not show Nulo's icon.");
    desktop.screenshot(pictures / "idle.png");

    std::printf("Spoken:      %s\n", speech.words.c_str());
    desktop.pressChord();
    desktop.waitForPrinted("Recording started");
    const auto voice = desktop.soundServer().play(speech.file);
    std::this_thread::sleep_for(std::chrono::seconds(3));
    require(!panel || panel->waitForIcon(DesktopPanel::Icon::recording),
            "The icon in the panel did not turn red while Nulo recorded.");
    desktop.screenshot(pictures / "recording.png");
    voice->wait(std::chrono::seconds(60));
    desktop.releaseChord();

    desktop.waitForPrinted("dataTask resumed");
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    desktop.screenshot(pictures / "waiting.png");
    savePicture(pictureOfTheWords(desktop), pictures / "streaming.png");

    const std::string mark = "text copied: ";
    const auto line = desktop.waitForPrinted(mark);
    const std::string recognised = line ? line->substr(line->find(mark) + mark.size()) : "";
    std::printf("Recognised:  %s\n", recognised.c_str());
    const bool arrived =
        !recognised.empty() && waitUntil([&] { return desktop.text() == recognised; });
    std::printf("Text window: %s\n", desktop.text().c_str());
    const int words = wordsInOrder(recognised, speech.words);

    require(!panel || panel->waitForIcon(DesktopPanel::Icon::idle),
            "The icon in the panel stayed red after the recording.");
    if (panel) {
        require(!panel->openMenu().isEmpty(), "A click on the icon in the panel opened no menu.");
        desktop.screenshot(pictures / "menu.png");
        panel->closeMenu();
    } else {
        desktop.screenshot(pictures / "pasted.png");
    }
    std::printf("Pictures:    %s/{idle,recording,waiting,streaming,%s}.png\n", pictures.c_str(),
                panel ? "menu" : "pasted");
    const bool stopped = desktop.stopNulo() == 0 && desktop.noKeyIsDown();

    if (!arrived || !stopped || words < 5) {
        std::fprintf(stderr, "%s\n",
                     !arrived   ? "The text did not arrive in the window."
                     : !stopped ? "Nulo did not end cleanly."
                                : "What was recognised is not what was spoken.");
        for (const std::string& printed : desktop.printed())
            std::fprintf(stderr, "  nulo: %s\n", printed.c_str());
        return 1;
    }
    std::printf("The words are in the text window (%d of them as spoken).\n", words);
    return 0;
}

}  // namespace
}  // namespace nulo

int main(int argc, char** argv) {
    const bool isSway = argc == 3 && argv[2] == std::string_view("sway");
    if (argc != 2 && !isSway) {
        std::fprintf(stderr, "usage: nulo-demo FOLDER [sway]\n");
        return 2;
    }
    QCoreApplication application(argc, argv);  // what speaks to the session bus needs one
    try {
        return nulo::demonstrate(argv[1], isSway ? nulo::DesktopSession::Screen::sway
                                                 : nulo::DesktopSession::Screen::x11);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "nulo-demo: %s\n", failure.what());
        return 1;
    }
}
