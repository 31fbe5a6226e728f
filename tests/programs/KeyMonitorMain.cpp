// The global shortcut by itself, for tests that stop or kill its process.

#include <chrono>
#include <thread>

#include "base/Print.h"
#include "fakes/FakeMainQueue.h"
#include "hotkey/GlobalKeyMonitor.h"
#include "pasting/InjectionGate.h"
#include "platform/Backends.h"

int main() {
    nulo::InjectionGate gate;
    nulo::FakeMainQueue queue;
    const auto source = nulo::makeX11EventTapSource(gate, queue, nulo::printLine);
    nulo::GlobalKeyMonitor monitor(*source, queue, nulo::printLine, nullptr);
    monitor.onRecordStart = [] { nulo::printLine("start"); };
    monitor.onRecordStop = [] { nulo::printLine("stop"); };
    monitor.start();
    nulo::printLine("listening");
    for (;;) {
        constexpr auto step = std::chrono::milliseconds(10);
        std::this_thread::sleep_for(step);
        queue.advance(step);
    }
}
