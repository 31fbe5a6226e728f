// The two ends of a take: from the chord to the first samples, beside a bare client of the sound
// server that opens the same stream; and from the release to the closed file, beside closing a file
// that was given the same samples and waits for nothing.

#include <pulse/pulseaudio.h>

#include <QCoreApplication>
#include <algorithm>
#include <atomic>
#include <functional>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

#include "audio/AudioRecorder.h"
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

/// Written by one thread, read by another that waits for it.
class Moment {
  public:
    void clear() { m_time = 0; }
    void markFirst() {
        std::int64_t none = 0;
        m_time.compare_exchange_strong(none, BenchClock::now().time_since_epoch().count());
    }
    BenchClock::time_point wait() const {
        if (!waitUntil([this] { return m_time != 0; }))
            throw std::runtime_error("a take did not begin or end");
        return BenchClock::time_point(BenchClock::duration(m_time));
    }

  private:
    std::atomic<std::int64_t> m_time = 0;
};

/// The real microphone; notes when a take's first samples come, and keeps the samples.
class WatchedMicrophone final : public Microphone {
  public:
    explicit WatchedMicrophone(std::unique_ptr<Microphone> real) : m_real(std::move(real)) {}

    MicrophonePermission authorizationStatus() override { return m_real->authorizationStatus(); }
    void requestAccess(std::function<void(bool)> answer) override {
        m_real->requestAccess(std::move(answer));
    }
    std::unique_ptr<CaptureEngine> makeEngine() override {
        samples.clear();
        return std::make_unique<Engine>(*this, m_real->makeEngine());
    }

    Moment firstSamples;
    std::vector<float> samples;  // of one take, once its file is closed

  private:
    class Engine final : public CaptureEngine {
      public:
        Engine(WatchedMicrophone& owner, std::unique_ptr<CaptureEngine> real)
            : m_owner(owner), m_real(std::move(real)) {}
        Result<double> inputSampleRate() override { return m_real->inputSampleRate(); }
        Outcome start(Tap tap, Interrupted interrupted) override {
            return m_real->start(
                [this, tap = std::move(tap)](std::span<const float> frames) {
                    m_owner.firstSamples.markFirst();
                    m_owner.samples.insert(m_owner.samples.end(), frames.begin(), frames.end());
                    tap(frames);
                },
                std::move(interrupted));
        }
        void stop() override { m_real->stop(); }

      private:
        WatchedMicrophone& m_owner;
        const std::unique_ptr<CaptureEngine> m_real;
    };

    const std::unique_ptr<Microphone> m_real;
};

/// A connected client of the sound server without anything of ours.
class BareClient {
  public:
    BareClient() : m_loop(pa_threaded_mainloop_new()) {
        m_context = pa_context_new(pa_threaded_mainloop_get_api(m_loop), "bare");
        if (pa_context_connect(m_context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0 ||
            pa_threaded_mainloop_start(m_loop) < 0)
            throw std::runtime_error("no sound server for the bare client");
        const bool isReady = waitUntil([this] {
            pa_threaded_mainloop_lock(m_loop);
            const bool ready = pa_context_get_state(m_context) == PA_CONTEXT_READY;
            pa_threaded_mainloop_unlock(m_loop);
            return ready;
        });
        if (!isReady)
            throw std::runtime_error("the sound server does not answer the bare client");
    }
    ~BareClient() {
        pa_threaded_mainloop_stop(m_loop);
        pa_context_disconnect(m_context);
        pa_context_unref(m_context);
        pa_threaded_mainloop_free(m_loop);
    }
    BareClient(const BareClient&) = delete;
    BareClient& operator=(const BareClient&) = delete;

    /// From the call to the first samples.
    BenchClock::duration firstSamples() {
        m_first.clear();
        const auto start = BenchClock::now();
        pa_threaded_mainloop_lock(m_loop);
        const pa_sample_spec format{PA_SAMPLE_FLOAT32NE, 48000, 1};
        pa_stream* stream = pa_stream_new(m_context, "bare", &format, nullptr);
        pa_stream_set_read_callback(
            stream,
            [](pa_stream* readable, std::size_t, void* self) {
                const void* data = nullptr;
                std::size_t bytes = 0;
                while (pa_stream_peek(readable, &data, &bytes) == 0 && bytes > 0) {
                    static_cast<BareClient*>(self)->m_first.markFirst();
                    pa_stream_drop(readable);
                }
            },
            this);
        const auto asMuch = static_cast<std::uint32_t>(-1);
        const pa_buffer_attr buffers{asMuch, asMuch, asMuch, asMuch, 1024 * sizeof(float)};
        pa_stream_connect_record(stream, nullptr, &buffers, PA_STREAM_ADJUST_LATENCY);
        pa_threaded_mainloop_unlock(m_loop);
        const auto took = m_first.wait() - start;
        std::this_thread::sleep_for(100ms);
        pa_threaded_mainloop_lock(m_loop);
        pa_stream_set_read_callback(stream, nullptr, nullptr);
        pa_stream_disconnect(stream);
        pa_stream_unref(stream);
        pa_threaded_mainloop_unlock(m_loop);
        return took;
    }

  private:
    pa_threaded_mainloop* const m_loop;
    pa_context* m_context;
    Moment m_first;
};

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
