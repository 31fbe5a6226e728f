// What the overlay costs: one picture of it, beside a mere fill of the same image; the time from a
// fragment's arrival to its pixels; and the processor that the overlay takes while recording.

#include <sys/resource.h>
#include <xcb/xcb.h>

#include <QApplication>
#include <QImage>
#include <QPainter>
#include <QTimer>
#include <cmath>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "common/Report.h"
#include "platform/Backends.h"
#include "rig/display/VirtualDisplay.h"
#include "rig/process/WaitUntil.h"
#include "transcription/CombinedStreamHandler.h"
#include "ui/overlay/WaveformPainting.h"
#include "ui/overlay/WaveformWindow.h"

namespace nulo {
namespace {

using namespace std::chrono_literals;

constexpr double displayFrame = 1000.0 / 60;  // ms
constexpr auto recordingTime = 5s;

void measurePainting(const char* figure, const WaveformContent& content, QSize size) {
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    WaveformMemory memory;
    Samples ours;
    Samples reference;
    for (int i = 0; i < 500; ++i) {
        const auto start = BenchClock::now();
        {
            QPainter painter(&image);
            paintWaveform(painter, content, memory, size, i * 0.05);
        }
        const auto middle = BenchClock::now();
        {
            QPainter painter(&image);
            painter.fillRect(image.rect(), QColor(20, 20, 20, 230));
        }
        ours.add(microseconds(middle - start));
        reference.add(microseconds(BenchClock::now() - middle));
    }
    report({.figure = figure,
            .unit = "µs",
            .ours = ours.median(),
            .reference = reference.median(),
            .referenceName = "filling the same image"});
}

/// Notes when the panel's next repaint is on the screen.
class PaintWatch final : public QObject {
  public:
    explicit PaintWatch(xcb_connection_t* server) : m_server(server) {}

    bool isExpected = false;
    std::optional<BenchClock::time_point> painted;

  private:
    bool eventFilter(QObject* window, QEvent* event) override {
        if (event->type() != QEvent::UpdateRequest || m_isInside)
            return false;
        m_isInside = true;
        QCoreApplication::sendEvent(window, event);  // paints and flushes
        m_isInside = false;
        std::free(xcb_get_input_focus_reply(m_server, xcb_get_input_focus(m_server), nullptr));
        if (isExpected && !painted)
            painted = BenchClock::now();
        return true;
    }

    xcb_connection_t* const m_server;
    bool m_isInside = false;
};

template <typename Condition>
void processUntil(Condition condition) {
    const auto end = BenchClock::now() + 10s;
    while (!condition()) {
        if (BenchClock::now() > end)
            throw std::runtime_error("the overlay did not repaint");
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
}

void processFor(BenchClock::duration duration) {
    QTimer::singleShot(std::chrono::duration_cast<std::chrono::milliseconds>(duration),
                       QCoreApplication::instance(), [] { QCoreApplication::exit(); });
    QCoreApplication::exec();
}

void measureFirstToken(MainQueue& queue, xcb_connection_t* server) {
    Published<std::vector<float>> levels;
    const std::unique_ptr<OverlayPlacement> placement = makeX11OverlayPlacement();
    Samples samples;
    for (int i = 0; i < 60; ++i) {
        WaveformWindow overlay(queue, systemClock(), *placement);
        overlay.show(levels);
        overlay.showTranscribing();
        overlay.showStreaming("");
        processFor(30ms);
        PaintWatch watch(server);
        CombinedStreamHandler handler(
            queue, [](std::string_view) {}, nullptr,
            [&](const std::string& fragment) {
                overlay.appendStreamingText(fragment);
                watch.isExpected = true;
            },
            [](const TextResult&) {});
        overlay.window()->installEventFilter(&watch);
        BenchClock::time_point arrived;
        std::thread session([&] {
            handler.didReceiveResponse({200, {}});
            arrived = BenchClock::now();
            handler.didReceiveData(
                "data: {\"choices\":[{\"delta\":{\"content\":\"Bonjour\"}}]}\n\n");
        });
        processUntil([&] { return watch.painted.has_value(); });
        session.join();
        samples.add(milliseconds(*watch.painted - arrived));
        overlay.window()->removeEventFilter(&watch);
    }
    report({.figure = "first token → its pixels on the screen", .unit = "ms"}, samples, {},
           {.upper = displayFrame});
}

double processorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// Percent of a core, with the levels of a 48 kHz microphone in pieces of 1,024 frames.
double loadOfLevels(Published<std::vector<float>>& levels) {
    QTimer microphone;
    microphone.setTimerType(Qt::PreciseTimer);
    int count = 0;
    QObject::connect(&microphone, &QTimer::timeout, [&] {
        levels.change([&](std::vector<float>& values) {
            values.push_back(static_cast<float>(std::abs(std::sin(count++ * 0.2))));
            if (values.size() > 80)
                values.erase(values.begin());
        });
    });
    microphone.start(21ms);
    const double before = processorSeconds();
    processFor(recordingTime);
    return (processorSeconds() - before) / 5 * 100;
}

void measureRecording(MainQueue& queue) {
    Published<std::vector<float>> levels;
    const std::unique_ptr<OverlayPlacement> placement = makeX11OverlayPlacement();
    const double without = loadOfLevels(levels);
    WaveformWindow overlay(queue, systemClock(), *placement);
    overlay.show(levels);
    const double with = loadOfLevels(levels);
    report({.figure = "overlay while recording, of one core",
            .unit = "%",
            .ours = with,
            .reference = without,
            .referenceName = "the same timer without an overlay",
            .compare = Row::Compare::difference,
            .bound = 1});
}

void run() {
    const VirtualDisplay server;
    qputenv("QT_QPA_PLATFORM", "xcb");
    int argc = 1;
    char name[] = "bench-overlay";
    char* argv[] = {name, nullptr};
    const QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);

    WaveformContent recording;
    for (int i = 0; i < 80; ++i)
        recording.audioLevels.push_back(static_cast<float>(i % 10) / 10);
    measurePainting("overlay repaint, 300×60 with 53 bars", recording, {300, 60});
    WaveformContent streaming;
    streaming.streamingText.emplace();
    for (int i = 0; i < 120; ++i)
        *streaming.streamingText += "quelques mots ";
    measurePainting("overlay repaint, 400×200 full of text", streaming, {400, 200});

    const std::unique_ptr<MainQueue> queue = makeQtMainQueue();
    auto* native = application.nativeInterface<QNativeInterface::QX11Application>();
    if (!native)
        throw std::runtime_error("no X11 for the overlay");
    measureFirstToken(*queue, native->connection());
    measureRecording(*queue);
}

}  // namespace
}  // namespace nulo

int main() {
    return nulo::runBench("bench-overlay", nulo::run);
}
