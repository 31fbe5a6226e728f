#include <pulse/pulseaudio.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>

#include "audio/FrameBlocks.h"
#include "base/Lifetime.h"
#include "platform/Backends.h"
#include "platform/sound/PulseConnection.h"

namespace nulo {
namespace {

/// Servers send somewhat less than they are asked for, and the first fragment is to fill a block.
constexpr uint32_t fragmentBytes = (FrameBlocks::length + 64) * sizeof(float);

class PulseCapture final : public CaptureEngine {
  public:
    PulseCapture(std::shared_ptr<PulseConnection> connection, MainQueue& mainQueue, Print print,
                 std::chrono::milliseconds silenceBound)
        : m_connection(std::move(connection)),
          m_mainQueue(mainQueue),
          m_print(std::move(print)),
          m_silenceBound(static_cast<pa_usec_t>(silenceBound.count()) * 1000) {}
    ~PulseCapture() override { stop(); }
    PulseCapture(const PulseCapture&) = delete;
    PulseCapture& operator=(const PulseCapture&) = delete;

    Result<double> inputSampleRate() override {
        const Result<unsigned> rate = m_connection->sampleRate();
        if (!rate)
            return rate.error();
        m_rate = rate.value();
        return static_cast<double>(m_rate);
    }

    Outcome start(Tap tap, Interrupted interrupted) override {
        if (m_rate == 0)
            if (const Result<double> rate = inputSampleRate(); !rate)
                return rate.error();
        m_blocks.emplace(std::move(tap));
        m_interrupted = std::move(interrupted);

        const PulseLock lock(m_connection->loop());
        pa_context* context = m_connection->context();
        if (!context)
            return Error{"no sound server is running"};
        // The rate is named rather than left to the server: the file has it, whatever microphone
        // the stream starts at or is moved to later. At the microphone's own nothing is resampled.
        const pa_sample_spec format{PA_SAMPLE_FLOAT32NE, m_rate, 1};
        m_stream = pa_stream_new(context, "Dictation", &format, nullptr);
        if (!m_stream)
            return Error{pa_strerror(pa_context_errno(context))};
        m_context = pa_context_ref(context);
        pa_stream_set_state_callback(
            m_stream, [](pa_stream*, void* data) { self(data)->stateChanged(); }, this);
        pa_stream_set_read_callback(
            m_stream, [](pa_stream*, size_t, void* data) { self(data)->readAvailable(); }, this);
        pa_stream_set_moved_callback(
            m_stream, [](pa_stream*, void* data) { self(data)->checkSource(); }, this);
        const pa_buffer_attr buffers{.maxlength = UINT32_MAX,
                                     .tlength = UINT32_MAX,
                                     .prebuf = UINT32_MAX,
                                     .minreq = UINT32_MAX,
                                     .fragsize = fragmentBytes};
        if (pa_stream_connect_record(m_stream, nullptr, &buffers, PA_STREAM_ADJUST_LATENCY) < 0) {
            Error error{pa_strerror(pa_context_errno(context))};
            release();
            return error;
        }
        m_silenceTimer = pa_context_rttime_new(
            m_context, pa_rtclock_now() + m_silenceBound,
            [](pa_mainloop_api*, pa_time_event*, const timeval*, void* data) {
                self(data)->silenceTimerFired();
            },
            this);
        return Success{};
    }

    void stop() override {
        if (!m_stream)
            return;
        const PulseLock lock(m_connection->loop());
        m_blocks->flush();  // what has arrived was read as it came
        release();
    }

  private:
    static PulseCapture* self(void* data) { return static_cast<PulseCapture*>(data); }

    void release() {
        if (m_silenceTimer)
            pa_threaded_mainloop_get_api(m_connection->loop())->time_free(m_silenceTimer);
        dropSourceQuery();
        pa_stream_set_state_callback(m_stream, nullptr, nullptr);
        pa_stream_set_read_callback(m_stream, nullptr, nullptr);
        pa_stream_set_moved_callback(m_stream, nullptr, nullptr);
        pa_stream_disconnect(m_stream);
        pa_stream_unref(m_stream);
        pa_context_unref(m_context);
        m_silenceTimer = nullptr;
        m_stream = nullptr;
        m_context = nullptr;
        m_isMicrophone = false;
    }

    void stateChanged() {
        switch (pa_stream_get_state(m_stream)) {
            case PA_STREAM_READY:
                checkSource();
                break;
            case PA_STREAM_FAILED:
            case PA_STREAM_TERMINATED:
                end(reasonOfFailure());
                break;
            default:
                break;
        }
    }

    std::string reasonOfFailure() const {
        if (pa_context_get_state(m_context) != PA_CONTEXT_READY)
            return "the sound server has gone";
        const int code = pa_context_errno(m_context);
        if (code == PA_ERR_KILLED || code == PA_ERR_NOENTITY)
            return "the microphone was unplugged";
        return pa_strerror(code);
    }

    /// When the last microphone goes, the server moves the stream to what the speakers play. Until
    /// it is known where the stream is now, what it brings stays unread.
    void checkSource() {
        m_isMicrophone = false;
        dropSourceQuery();
        m_sourceQuery = pa_context_get_source_info_by_index(
            m_context, pa_stream_get_device_index(m_stream),
            [](pa_context*, const pa_source_info* info, int end, void* data) {
                self(data)->sourceAnswered(info, end);
            },
            this);
    }

    void sourceAnswered(const pa_source_info* info, int end) {
        if (end > 0)
            return;
        if (end < 0 || info->monitor_of_sink != PA_INVALID_INDEX)
            return this->end("the microphone was unplugged");
        m_isMicrophone = true;
        readAvailable();
    }

    void dropSourceQuery() {
        if (!m_sourceQuery)
            return;
        pa_operation_cancel(m_sourceQuery);
        pa_operation_unref(m_sourceQuery);
        m_sourceQuery = nullptr;
    }

    void readAvailable() {
        if (!m_isMicrophone || pa_stream_get_state(m_stream) != PA_STREAM_READY)
            return;
        const void* data = nullptr;
        size_t bytes = 0;
        while (pa_stream_peek(m_stream, &data, &bytes) == 0 && bytes > 0) {
            const size_t frames = bytes / sizeof(float);
            if (data)
                m_blocks->add({static_cast<const float*>(data), frames});
            else
                addSilence(frames);
            m_isDelivering = true;
            pa_stream_drop(m_stream);
        }
    }

    /// Fills a hole in the server's data, so that the rest keeps its place in time.
    void addSilence(size_t frames) {
        static constexpr std::array<float, FrameBlocks::length> silence{};
        while (frames > 0) {
            const size_t part = std::min(frames, silence.size());
            m_blocks->add({silence.data(), part});
            frames -= part;
        }
    }

    void silenceTimerFired() {
        if (m_isDelivering) {
            m_isDelivering = false;
            pa_context_rttime_restart(m_context, m_silenceTimer, pa_rtclock_now() + m_silenceBound);
            return;
        }
        if (m_hasEnded)
            return;
        m_print(pa_stream_get_state(m_stream) == PA_STREAM_READY
                    ? "The microphone delivers no sound; it may be suspended or in use elsewhere"
                    : "The sound server does not answer; nothing is being recorded");
    }

    void end(std::string reason) {
        m_isMicrophone = false;
        if (m_hasEnded)
            return;
        m_hasEnded = true;
        m_mainQueue.async(m_lifetime.guard([this, error = Error{std::move(reason)}] {
            if (!m_stream)
                return;  // stopped meanwhile
            const Interrupted interrupted = m_interrupted;
            interrupted(error);  // may destroy this object
        }));
    }

    const std::shared_ptr<PulseConnection> m_connection;
    MainQueue& m_mainQueue;
    const Print m_print;
    const pa_usec_t m_silenceBound;
    unsigned m_rate = 0;
    Interrupted m_interrupted;
    std::optional<FrameBlocks> m_blocks;

    // Under libpulse's lock; the pointers are set on the main thread only.
    pa_context* m_context = nullptr;
    pa_stream* m_stream = nullptr;
    pa_time_event* m_silenceTimer = nullptr;
    pa_operation* m_sourceQuery = nullptr;
    bool m_isMicrophone = false;
    bool m_isDelivering = false;
    bool m_hasEnded = false;

    Lifetime m_lifetime;
};

/// An unsandboxed program has no permission to ask for: the server lets it in or does not.
class PulseMicrophone final : public Microphone {
  public:
    /// `withoutServer` stands in while there is no server; it may be null.
    PulseMicrophone(MainQueue& mainQueue, Print print, const PulseTimings& timings,
                    std::unique_ptr<Microphone> withoutServer)
        : m_mainQueue(mainQueue),
          m_print(std::move(print)),
          m_silenceBound(timings.silenceBound),
          m_withoutServer(std::move(withoutServer)),
          m_connection(std::make_shared<PulseConnection>(timings)) {}

    MicrophonePermission authorizationStatus() override {
        if (isStoodInFor())
            return m_withoutServer->authorizationStatus();
        return m_connection->isAccessDenied() ? MicrophonePermission::denied
                                              : MicrophonePermission::authorized;
    }
    void requestAccess(std::function<void(bool)> answer) override {
        answer(authorizationStatus() == MicrophonePermission::authorized);
    }
    std::unique_ptr<CaptureEngine> makeEngine() override {
        if (isStoodInFor())
            return m_withoutServer->makeEngine();
        return std::make_unique<PulseCapture>(m_connection, m_mainQueue, m_print, m_silenceBound);
    }
    std::string name() override {
        return isStoodInFor() ? m_withoutServer->name() : m_connection->description();
    }

  private:
    bool isStoodInFor() const { return m_withoutServer && m_connection->isServerMissing(); }

    MainQueue& m_mainQueue;
    const Print m_print;
    const std::chrono::milliseconds m_silenceBound;
    const std::unique_ptr<Microphone> m_withoutServer;
    const std::shared_ptr<PulseConnection> m_connection;
};

}  // namespace

std::unique_ptr<Microphone> makePulseMicrophone(MainQueue& mainQueue, Print print,
                                                const PulseTimings& timings) {
    return std::make_unique<PulseMicrophone>(mainQueue, std::move(print), timings, nullptr);
}

std::unique_ptr<Microphone> makePulseMicrophone(MainQueue& mainQueue, Print print) {
    return makePulseMicrophone(mainQueue, std::move(print), PulseTimings{});
}

std::unique_ptr<Microphone> makeMicrophone(MainQueue& mainQueue, Print print) {
    return std::make_unique<PulseMicrophone>(mainQueue, std::move(print), PulseTimings{},
                                             makeAlsaMicrophone(mainQueue));
}

}  // namespace nulo
