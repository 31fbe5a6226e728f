// The two ends of a take: from the chord to the first samples, beside a bare client of the sound
// server that opens the same stream; and from the release to the closed file, beside closing a file
// that was given the same samples and waits for nothing.

#include <QCoreApplication>
#include <algorithm>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

#include "audio/AudioRecorder.h"
#include "common/FirstSamples.h"
#include "common/KeyTarget.h"
#include "common/Report.h"
#include "encoder/LibavAacWriter.h"
#include "hotkey/GlobalKeyMonitor.h"
#include "pasting/InjectionGate.h"
#include "platform/Backends.h"
#include "rig/display/VirtualDisplay.h"
#include "rig/display/XTestKeyboard.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"
#include "rig/sound/VirtualMicrophone.h"

namespace nulo {
namespace {

using namespace std::chrono_literals;
using Key = XTestKeyboard::Key;

constexpr auto speaking = 300ms;
constexpr auto serverPeriod = 50ms;  // of the monitor of a null sink

int takes = 100;

/// Closing a file of these samples, with the encoder as the recorder leaves it at the release.
BenchClock::duration closeAlone(const std::vector<float>& samples,
                                const std::filesystem::path& file) {
    auto writer = makeLibavAacWriter(file, {});
    if (!writer)
        throw std::runtime_error(writer.error().description);
    for (std::span<const float> rest(samples); !rest.empty();) {
        const auto part = rest.first(std::min<std::size_t>(1024, rest.size()));
        static_cast<void>(writer.value()->write(part));
        rest = rest.subspan(part.size());
    }
    const auto start = BenchClock::now();
    if (!writer.value()->close())
        throw std::runtime_error("the reference file was not closed");
    return BenchClock::now() - start;
}

/// The takes, by a thread of their own while main does main's work.
struct Series {
    Samples first, bareFirst, closed, closeAlone;  // ms
};

void dictate(Series& series, WatchedMicrophone& microphone, Moment& started, Moment& closed,
             const TemporaryFolder& folder) {
    KeyTarget target;
    BareClient bare;
    if (!waitUntil([&] { return target.isGrabbed(Key::altLeft); }))
        throw std::runtime_error("the key tap does not follow the window");
    // The server works in periods, and the last first samples came at the start of one: both sides
    // meet it at every point of a period equally often, and long after the last stream.
    std::vector<int> points(static_cast<std::size_t>(takes));
    std::iota(points.begin(), points.end(), 0);
    std::shuffle(points.begin(), points.end(), std::minstd_rand(1));
    const auto rest = [](int point) {
        std::this_thread::sleep_for(100ms + point * std::chrono::nanoseconds(serverPeriod) / takes);
    };
    for (int i = 0; i < takes; ++i) {
        rest(points[static_cast<std::size_t>(i)]);
        microphone.firstSamples.clear();
        started.clear();
        closed.clear();
        target.press(Key::altLeft);
        std::this_thread::sleep_for(10ms);
        const auto pressed = target.press(Key::space);
        series.first.add(milliseconds(microphone.firstSamples.wait() - pressed));
        started.wait();
        std::this_thread::sleep_for(speaking);
        const auto released = target.release(Key::space);
        series.closed.add(milliseconds(closed.wait() - released));
        target.release(Key::altLeft);
        target.waitForRelease(Key::altLeft);
        rest(points[static_cast<std::size_t>(takes - 1 - i)]);
        series.bareFirst.add(milliseconds(bare.firstSamples()));
        series.closeAlone.add(milliseconds(closeAlone(microphone.samples, folder / "take.m4a")));
    }
}

void run() {
    const VirtualDisplay xServer;
    const VirtualMicrophone soundServer;
    setenv("PULSE_SERVER", soundServer.address().c_str(), 1);
    soundServer.playTone(440);
    const TemporaryFolder folder;
    const std::unique_ptr<MainQueue> queue = makeQtMainQueue();
    const auto silent = [](std::string_view) {};
    WatchedMicrophone microphone(makePulseMicrophone(*queue, silent));
    AudioRecorder recorder(microphone, makeAacFileWriter, *queue, systemClock(), silent,
                           folder.path());
    InjectionGate gate;
    const std::unique_ptr<EventTapSource> tap = makeX11EventTapSource(gate, *queue, silent);
    GlobalKeyMonitor monitor(*tap, *queue, silent, nullptr);
    Moment started;
    Moment closed;
    monitor.onRecordStart = [&] { recorder.startRecording(); };
    monitor.onRecordStop = [&] {
        recorder.stopRecording();
        closed.markFirst();
    };
    const Subscription recording = recorder.isRecording().subscribe([&](bool isRecording) {
        if (isRecording)
            started.markFirst();
    });
    monitor.start();

    Series series;
    std::string failure;
    std::thread user([&] {
        try {
            dictate(series, microphone, started, closed, folder);
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
        {.figure = "chord → first samples",
         .unit = "ms",
         .referenceName = "a bare, connected client of the sound server opening the same stream"},
        series.first, series.bareFirst, {.median = 1.15, .upper = 1.15});
    report({.figure = "release → file closed",
            .unit = "ms",
            .referenceName = "closing a file of the same samples",
            .compare = Row::Compare::difference},
           series.closed, series.closeAlone, {.upper = 2});
}

}  // namespace
}  // namespace nulo

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    nulo::takes = nulo::numberOption(argc, argv, "--takes", nulo::takes);
    return nulo::runBench("bench-capture", nulo::run);
}
