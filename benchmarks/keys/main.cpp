// What Nulo adds to the way of a key that the user types: the same keys to the same window, without
// Nulo and while it runs, in turns.

#include <QCoreApplication>
#include <thread>

#include "common/KeyTarget.h"
#include "common/Report.h"
#include "rig/desktop/DesktopSession.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

using namespace std::chrono_literals;
using Key = XTestKeyboard::Key;

constexpr int turns = 4;
constexpr int keysATurn = 250;
constexpr auto betweenKeys = 2ms;

struct Latencies {
    Samples plain;       // µs
    Samples withOption;  // likewise
};

void type(KeyTarget& target, Latencies& latencies) {
    for (int i = 0; i < keysATurn; ++i) {
        auto pressed = target.press(Key::a);
        latencies.plain.add(microseconds(target.waitForPress(Key::a) - pressed));
        target.release(Key::a);
        target.waitForRelease(Key::a);
        std::this_thread::sleep_for(betweenKeys);

        target.press(Key::altLeft);
        std::this_thread::sleep_for(betweenKeys);
        pressed = target.press(Key::a);
        latencies.withOption.add(microseconds(target.waitForPress(Key::a) - pressed));
        target.release(Key::a);
        target.waitForRelease(Key::a);
        target.release(Key::altLeft);
        target.waitForRelease(Key::altLeft);
        std::this_thread::sleep_for(betweenKeys);
    }
}

/// The added time at a percentile, as one row.
void reportAdded(const std::string& figure, const Samples& with, const Samples& without,
                 double percent, const char* name, double bound) {
    report({.figure = figure + name,
            .unit = "µs",
            .ours = with.percentile(percent),
            .reference = without.percentile(percent),
            .referenceName = "the same key without Nulo",
            .compare = Row::Compare::difference,
            .bound = bound});
}

void run() {
    DesktopSession desktop;
    desktop.writeServiceFile("http://127.0.0.1:9");
    KeyTarget target;
    Latencies without;
    Latencies with;
    for (int turn = 0; turn < turns; ++turn) {
        type(target, without);
        desktop.startNulo();
        if (!waitUntil([&] { return target.isGrabbed(Key::altLeft); }))
            throw std::runtime_error("Nulo does not follow the window");
        type(target, with);
        desktop.stopNulo();
    }
    reportAdded("a plain key", with.plain, without.plain, 50, ", p50", 60);
    reportAdded("a plain key", with.plain, without.plain, 99, ", p99", 60);
    reportAdded("a letter with Alt held", with.withOption, without.withOption, 50, ", p50", 150);
    reportAdded("a letter with Alt held", with.withOption, without.withOption, 99, ", p99", 150);
}

}  // namespace
}  // namespace nulo

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    return nulo::runBench("bench-keys", nulo::run);
}
