// Nulo in sway: from the chord to the first samples, beside a bare client of the sound server; and
// from the last token of the answer to the text in a terminal, less the pause that is there by
// design, beside the same dictation on X11.

#include <sys/mman.h>
#include <unistd.h>

#include <QCoreApplication>
#include <algorithm>
#include <mutex>
#include <numeric>
#include <random>
#include <thread>

#include "audio/AudioRecorder.h"
#include "common/FirstSamples.h"
#include "common/Report.h"
#include "hotkey/GlobalKeyMonitor.h"
#include "platform/Backends.h"
#include "platform/WaylandBackends.h"
#include "platform/wayland/SeatKeymap.h"
#include "platform/wayland/WaylandConnection.h"
#include "rig/desktop/DesktopSession.h"
#include "rig/display/HeadlessCompositor.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"
#include "rig/sound/VirtualMicrophone.h"

namespace nulo {
namespace {

using namespace std::chrono_literals;

constexpr auto designedPause = 500ms;
constexpr auto take = 1600ms;  // a little more than the shortest that counts

int takes = 20;

void require(bool condition, const char* failure) {
    if (!condition)
        throw std::runtime_error(failure);
}

/// Alt+Space on a keyboard of sway's.
class ChordKeyboard {
  public:
    explicit ChordKeyboard(WaylandConnection& connection) : m_connection(connection) {
        SeatKeymap keymap(connection);
        keymap.update();
        m_manager = connection.bind<zwp_virtual_keyboard_manager_v1>(
            zwp_virtual_keyboard_manager_v1_interface, 1, 1);
        require(m_manager != nullptr, "sway offers no virtual keyboard");
        m_keyboard.reset(zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(
            m_manager.get(), connection.seat()));
        const std::string& text = keymap.text();
        const int file = memfd_create("keymap", MFD_CLOEXEC);
        require(write(file, text.c_str(), text.size() + 1) == ssize_t(text.size() + 1),
                "the keymap could not be written");
        zwp_virtual_keyboard_v1_keymap(m_keyboard.get(), WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1, file,
                                       std::uint32_t(text.size() + 1));
        require(connection.finish(), "sway does not take the keyboard");
        close(file);
    }
    BenchClock::time_point set(bool isDown) {
        constexpr std::uint32_t altKey = 56, spaceKey = 57, altMask = 8;
        const auto now = BenchClock::now();
        const std::uint32_t state =
            isDown ? WL_KEYBOARD_KEY_STATE_PRESSED : WL_KEYBOARD_KEY_STATE_RELEASED;
        zwp_virtual_keyboard_v1_key(m_keyboard.get(), 0, isDown ? altKey : spaceKey, state);
        if (isDown)
            zwp_virtual_keyboard_v1_modifiers(m_keyboard.get(), altMask, 0, 0, 0);
        zwp_virtual_keyboard_v1_key(m_keyboard.get(), 0, isDown ? spaceKey : altKey, state);
        if (!isDown)
            zwp_virtual_keyboard_v1_modifiers(m_keyboard.get(), 0, 0, 0, 0);
        m_connection.finish();
        return now;
    }

  private:
    WaylandConnection& m_connection;
    Wayland<zwp_virtual_keyboard_manager_v1> m_manager;
    Wayland<zwp_virtual_keyboard_v1> m_keyboard;
};

struct FirstSamples {
    Samples ours, bare;  // ms
};

/// By a thread of its own while main does main's work.
void dictate(FirstSamples& series, const std::string& display, WatchedMicrophone& microphone,
             Moment& stopped) {
    auto connection = WaylandConnection::open(display);
    if (!connection)
        throw std::runtime_error(connection.error().description);
    ChordKeyboard keyboard(*connection.value());
    BareClient bare;
    // The sound server works in periods, and the last first samples came at the start of one: both
    // sides meet it at every point of a period equally often.
    const int beginnings = 5 * takes;
    std::vector<int> points(static_cast<std::size_t>(beginnings));
    std::iota(points.begin(), points.end(), 0);
    std::shuffle(points.begin(), points.end(), std::minstd_rand(1));
    const auto rest = [beginnings](int point) {
        std::this_thread::sleep_for(100ms + point * std::chrono::nanoseconds(50ms) / beginnings);
    };
    for (int i = 0; i < beginnings; ++i) {
        rest(points[static_cast<std::size_t>(i)]);
        microphone.firstSamples.clear();
        stopped.clear();
        const auto pressed = keyboard.set(true);
        series.ours.add(milliseconds(microphone.firstSamples.wait() - pressed));
        std::this_thread::sleep_for(300ms);
        keyboard.set(false);
        stopped.wait();
        rest(points[static_cast<std::size_t>(beginnings - 1 - i)]);
        series.bare.add(milliseconds(bare.firstSamples()));
    }
}

void measureFirstSamples() {
    const HeadlessCompositor sway(HeadlessCompositor::Kind::sway);
    const VirtualMicrophone soundServer;
    setenv("PULSE_SERVER", soundServer.address().c_str(), 1);
    soundServer.playTone(440);
    const TemporaryFolder folder;
    const std::unique_ptr<MainQueue> queue = makeQtMainQueue();
    const auto silent = [](std::string_view) {};
    WatchedMicrophone microphone(makePulseMicrophone(*queue, silent));
    AudioRecorder recorder(microphone, makeAacFileWriter, *queue, systemClock(), silent,
                           folder.path());
    const auto bindings = makeSwayBindings(sway.swaySocket(), silent);
    require(waitUntil([&] { return bindings->isTrusted(); }), "sway does not bind the chord");
    GlobalKeyMonitor monitor(*bindings, *queue, silent, nullptr);
    Moment stopped;
    monitor.onRecordStart = [&] { recorder.startRecording(); };
    monitor.onRecordStop = [&] {
        recorder.stopRecording();
        stopped.markFirst();
    };
    monitor.start();
    FirstSamples series;
    std::string failure;
    std::thread user([&] {
        try {
            dictate(series, sway.display(), microphone, stopped);
        } catch (const std::exception& caught) {
            failure = caught.what();
        }
        queue->async([] { QCoreApplication::quit(); });
    });
    QCoreApplication::exec();
    user.join();
    monitor.stop();
    if (!failure.empty())
        throw std::runtime_error(failure);
    report(
        {.figure = "sway: chord → first samples",
         .unit = "ms",
         .referenceName = "a bare, connected client of the sound server opening the same stream"},
        series.ours, series.bare, {.median = 1.15, .upper = 1.15});
}

/// From the last token to the words in the text window's file.
Samples pasteTimes(DesktopSession::Screen screen) {
    std::mutex mutex;
    BenchClock::time_point lastToken;
    ScriptedHttpServer service([&](const ReceivedRequest& request,
                                   ScriptedHttpServer::Connection& client) {
        if (request.target != "/api/transcribe") {
            client.send(httpResponse(200, ""));
            return;
        }
        const std::lock_guard lock(mutex);
        lastToken = BenchClock::now();
        client.send(httpResponse(
            200, "data: {\"choices\":[{\"delta\":{\"content\":\"Oui\"}}]}\n\ndata: [DONE]\n\n"));
    });
    DesktopSession desktop(DesktopSession::Launch::later, screen);
    desktop.writeServiceFile(service.url());
    desktop.writeConfig("openai", "voice-to-text");
    desktop.startTextWindow();
    desktop.startNulo();
    Samples times;
    for (int i = 0; i < takes; ++i) {
        const std::size_t before = desktop.text().size();
        desktop.beginTake();
        std::this_thread::sleep_for(take);
        desktop.releaseChord();
        const auto end = BenchClock::now() + 30s;
        while (desktop.text().size() == before && BenchClock::now() < end)
            std::this_thread::sleep_for(100us);
        const auto arrived = BenchClock::now();
        if (desktop.text().size() == before)
            throw std::runtime_error("a text did not arrive: " + desktop.printed().back());
        const std::lock_guard lock(mutex);
        times.add(milliseconds(arrived - lastToken - designedPause));
    }
    return times;
}

void run() {
    measureFirstSamples();
    const Samples sway = pasteTimes(DesktopSession::Screen::sway);
    const Samples x11 = pasteTimes(DesktopSession::Screen::x11);
    report({.figure = "sway: last token → text in foot, less the designed 0.5 s",
            .unit = "ms",
            .referenceName = "the same dictation on X11, into a window of Qt's",
            .compare = Row::Compare::difference},
           sway, x11, {});
}

}  // namespace
}  // namespace nulo

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    nulo::takes = nulo::numberOption(argc, argv, "--takes", nulo::takes);
    return nulo::runBench("bench-wayland", nulo::run);
}
