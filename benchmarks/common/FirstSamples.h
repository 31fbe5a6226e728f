#pragma once

#include <pulse/pulseaudio.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "audio/CaptureEngine.h"
#include "common/Report.h"
#include "rig/process/WaitUntil.h"

namespace nulo {

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
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
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

}  // namespace nulo
