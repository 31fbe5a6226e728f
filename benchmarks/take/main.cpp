// Whether a long take costs more than a short one: ten minutes beside ten seconds, spoken as fast
// as the recorder takes it.

#include <sys/resource.h>

#include <QCoreApplication>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "audio/AudioRecorder.h"
#include "common/ProcessFacts.h"
#include "common/Report.h"
#include "platform/Backends.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/sound/FakeMicrophone.h"

namespace nulo {
namespace {

constexpr int rate = 48000;
constexpr std::size_t bufferLength = 1024;

/// The kernel's mark of this process's greatest memory, which a write to clear_refs sets back, and
/// that of the largest encoder up to now.
double peakMegabytes() {
    double own = 0;
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmHWM:"))
            own = std::strtod(line.c_str() + 6, nullptr);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // the encoder is collected
    rusage encoders{};
    getrusage(RUSAGE_CHILDREN, &encoders);
    return (own + static_cast<double>(encoders.ru_maxrss)) / 1024;
}

/// It sleeps once it has taken all that it was sent.
bool encoderIsAtWork() {
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream children(thread.path() / "children");
        for (std::string process; children >> process;) {
            std::string facts;
            std::getline(std::ifstream("/proc/" + process + "/stat"), facts);
            if (facts.find(") S ") == std::string::npos)
                return true;
        }
    }
    return false;
}

struct Take {
    double memory;        // MB, at its peak, with the encoder
    double longestBlock;  // ms, of the main thread
};

Take record(int seconds) {
    std::ofstream("/proc/self/clear_refs") << "5";
    const TemporaryFolder folder;
    const std::unique_ptr<MainQueue> queue = makeQtMainQueue();
    FakeMicrophone microphone;
    AudioRecorder recorder(
        microphone, makeAacFileWriter, *queue, systemClock(), [](std::string_view) {},
        folder.path());
    Take take{};
    const auto timed = [&](auto work) {
        const auto start = BenchClock::now();
        work();
        take.longestBlock = std::max(take.longestBlock, milliseconds(BenchClock::now() - start));
    };
    const auto runMain = [&] { timed([] { QCoreApplication::processEvents(); }); };
    const auto waitForEncoder = [&] {
        while (encoderIsAtWork()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            runMain();
        }
    };
    recorder.startRecording();
    while (!microphone.isRunning())
        runMain();

    std::vector<float> frames(bufferLength);
    for (int buffer = 0; buffer < seconds * rate / static_cast<int>(bufferLength); ++buffer) {
        for (std::size_t i = 0; i < frames.size(); ++i)
            frames[i] =
                static_cast<float>(0.3 * std::sin(static_cast<double>(buffer * bufferLength + i) *
                                                  0.05 * (1 + 0.1 * (buffer % 50))));
        std::thread([&] { microphone.capture(frames); }).join();
        runMain();
        // At this speed the encoder falls behind, and ten seconds of sound are the most that waits.
        if (buffer % 100 == 99)
            waitForEncoder();
    }
    waitForEncoder();  // of a real take it has all but the last buffer by now
    timed([&] { recorder.stopRecording(); });
    take.memory = peakMegabytes();
    return take;
}

void run() {
    record(10);  // what the encoder loads once is nobody's growth
    const Take brief = record(10);
    const Take longest = record(600);
    report({.figure = "a 10-minute take: peak memory",
            .unit = "MB",
            .ours = longest.memory,
            .reference = brief.memory,
            .referenceName = "a 10-second take",
            // The file's index grows, by some bytes a packet.
            .bound = 1.1});
    report({.figure = "a 10-minute take: longest block of the main thread",
            .unit = "ms",
            .ours = longest.longestBlock,
            .bound = 5});
    report({.figure = "a 10-second take: longest block of the main thread",
            .unit = "ms",
            .ours = brief.longestBlock,
            .bound = 5});
}

}  // namespace
}  // namespace nulo

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    return nulo::runBench("bench-take", nulo::run);
}
