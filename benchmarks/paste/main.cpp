// From the last token of the answer to the paste key in the user's window, less the pause that is
// there by design: 0.1 s for the overlay to go and 0.4 s for the text to be read.

#include <QCoreApplication>
#include <mutex>
#include <thread>

#include "common/KeyTarget.h"
#include "common/Report.h"
#include "rig/desktop/DesktopSession.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

using namespace std::chrono_literals;

constexpr auto designedPause = 500ms;
constexpr auto take = 1600ms;  // a little more than the shortest that counts
constexpr int keyV = 55;

int takes = 20;

void run() {
    std::mutex mutex;
    BenchClock::time_point lastToken;
    ScriptedHttpServer service([&](const ReceivedRequest& request,
                                   ScriptedHttpServer::Connection& client) {
        if (request.target != "/api/transcribe") {
            client.send(httpResponse(200, ""));
            return;
        }
        client.send(
            "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n"
            "Transfer-Encoding: chunked\r\n\r\n");
        client.send(httpChunk("data: {\"choices\":[{\"delta\":{\"content\":\"Oui\"}}]}\n\n"));
        client.pause(100ms);
        {
            const std::lock_guard lock(mutex);
            lastToken = BenchClock::now();
        }
        client.send(
            httpChunk("data: {\"choices\":[{\"delta\":{\"content\":\".\"}}]}\n\ndata: [DONE]\n\n"));
        client.send(httpChunk(""));
    });
    DesktopSession desktop;
    desktop.writeServiceFile(service.url());
    desktop.writeConfig("openai", "voice-to-text");
    KeyTarget target;
    desktop.startNulo();
    if (!waitUntil([&] { return target.isGrabbed(XTestKeyboard::altLeft); }))
        throw std::runtime_error("Nulo does not follow the window");
    Samples ours;
    Samples roundTrips;
    for (int i = 0; i < takes; ++i) {
        desktop.pressChord();
        std::this_thread::sleep_for(take);
        desktop.releaseChord();
        const auto pasted = target.waitForPress(keyV);
        {
            const std::lock_guard lock(mutex);
            ours.add(milliseconds(pasted - lastToken - designedPause));
        }
        std::this_thread::sleep_for(50ms);
        for (int j = 0; j < 20; ++j)
            roundTrips.add(milliseconds(target.roundTrip()));
    }
    report({.figure = "last token → Ctrl+V seen, less the designed 0.5 s",
            .unit = "ms",
            .referenceName = "a question to the X server and its answer",
            .compare = Row::Compare::difference},
           ours, roundTrips, {.median = 5, .upper = 5});
}

}  // namespace
}  // namespace nulo

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    nulo::takes = nulo::numberOption(argc, argv, "--takes", nulo::takes);
    return nulo::runBench("bench-paste", nulo::run);
}
