#include <alsa/asoundlib.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "audio/AacSampleRate.h"
#include "audio/FrameBlocks.h"
#include "base/Lifetime.h"
#include "platform/Backends.h"

namespace nulo {
namespace {

constexpr const char* device = "default";
constexpr snd_pcm_uframes_t periodFrames = FrameBlocks::length;
constexpr snd_pcm_uframes_t bufferFrames = 16 * periodFrames;

struct ClosePcm {
    void operator()(snd_pcm_t* pcm) const { snd_pcm_close(pcm); }
};
using Pcm = std::unique_ptr<snd_pcm_t, ClosePcm>;

Error alsaError(int code) {
    switch (-code) {
        case ENOENT:
        case ENODEV:
        case ENXIO:
            return {"no microphone is connected"};
        case EACCES:
        case EPERM:
            return {"this user may not use the microphone"};
        case EBUSY:
            return {"another program uses the microphone"};
        default:
            return {std::string("the microphone failed: ") + snd_strerror(code)};
    }
}

void ignoreMessage(const char*, int, const char*, int, const char*, ...) {}

Result<Pcm, int> openDevice() {
    // libasound complains on stderr about every missing card; the caller gets the reason instead.
    snd_lib_error_set_handler(ignoreMessage);
    snd_pcm_t* opened = nullptr;
    const int code = snd_pcm_open(&opened, device, SND_PCM_STREAM_CAPTURE, SND_PCM_NONBLOCK);
    if (code < 0)
        return code;
    return Pcm(opened);
}

class EventDescriptor {
  public:
    EventDescriptor() : m_descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~EventDescriptor() { ::close(m_descriptor); }
    EventDescriptor(const EventDescriptor&) = delete;
    EventDescriptor& operator=(const EventDescriptor&) = delete;
    int get() const { return m_descriptor; }
    void raise() { eventfd_write(m_descriptor, 1); }

  private:
    int m_descriptor;
};

class AlsaCapture final : public CaptureEngine {
  public:
    explicit AlsaCapture(MainQueue& mainQueue) : m_mainQueue(mainQueue) {}
    ~AlsaCapture() override { stop(); }
    AlsaCapture(const AlsaCapture&) = delete;
    AlsaCapture& operator=(const AlsaCapture&) = delete;

    Result<double> inputSampleRate() override {
        if (!m_pcm)
            if (const Outcome opened = open(); !opened)
                return opened.error();
        return static_cast<double>(m_rate);
    }

    Outcome start(Tap tap, Interrupted interrupted) override {
        if (const Result<double> rate = inputSampleRate(); !rate)
            return rate.error();
        m_blocks.emplace(std::move(tap));
        m_interrupted = std::move(interrupted);
        if (const int code = snd_pcm_start(m_pcm.get()); code < 0)
            return alsaError(code);
        m_thread = std::thread([this] { capture(); });
        return Success{};
    }

    void stop() override {
        if (!m_thread.joinable())
            return;
        m_stopRequest.raise();
        m_thread.join();
        m_blocks->flush();
        m_pcm.reset();
    }

  private:
    Outcome open() {
        auto opened = openDevice();
        if (!opened)
            return alsaError(opened.error());
        // First the device's own rates alone, so that nothing is resampled that need not be.
        int code = configure(opened.value().get(), false);
        if (code < 0 || aacSampleRate(m_rate) != m_rate)
            code = configure(opened.value().get(), true);
        if (code < 0)
            return alsaError(code);
        m_pcm = std::move(opened).value();
        return Success{};
    }

    int configure(snd_pcm_t* pcm, bool resample) {
        snd_pcm_hw_params_t* parameters = nullptr;
        snd_pcm_hw_params_alloca(&parameters);
        snd_pcm_uframes_t period = periodFrames;
        snd_pcm_uframes_t buffer = bufferFrames;
        m_rate = 48000;
        snd_pcm_hw_free(pcm);  // of an earlier try
        int code = snd_pcm_hw_params_any(pcm, parameters);
        if (code >= 0)
            code = snd_pcm_hw_params_set_rate_resample(pcm, parameters, resample);
        if (code >= 0)
            code = snd_pcm_hw_params_set_access(pcm, parameters, SND_PCM_ACCESS_RW_INTERLEAVED);
        if (code >= 0)
            code = snd_pcm_hw_params_set_format(pcm, parameters, SND_PCM_FORMAT_FLOAT);
        if (code >= 0)
            code = snd_pcm_hw_params_set_channels(pcm, parameters, 1);
        if (code >= 0)
            code = resample ? snd_pcm_hw_params_set_rate(pcm, parameters, m_rate, 0)
                            : snd_pcm_hw_params_set_rate_near(pcm, parameters, &m_rate, nullptr);
        if (code >= 0)
            code = snd_pcm_hw_params_set_period_size_near(pcm, parameters, &period, nullptr);
        if (code >= 0)
            code = snd_pcm_hw_params_set_buffer_size_near(pcm, parameters, &buffer);
        return code < 0 ? code : snd_pcm_hw_params(pcm, parameters);
    }

    void capture() {
        std::vector<pollfd> descriptors(
            static_cast<std::size_t>(std::max(0, snd_pcm_poll_descriptors_count(m_pcm.get()))));
        snd_pcm_poll_descriptors(m_pcm.get(), descriptors.data(),
                                 static_cast<unsigned>(descriptors.size()));
        descriptors.push_back({m_stopRequest.get(), POLLIN, 0});
        int code = 0;
        while (code >= 0) {
            if (poll(descriptors.data(), descriptors.size(), -1) < 0 && errno != EINTR)
                code = -errno;
            if (descriptors.back().revents != 0)
                break;
            unsigned short events = 0;
            if (code >= 0)
                code = snd_pcm_poll_descriptors_revents(
                    m_pcm.get(), descriptors.data(), static_cast<unsigned>(descriptors.size() - 1),
                    &events);
            if (code >= 0 && events != 0)
                code = readOnce();
        }
        if (code >= 0)
            readRest();
        else
            interrupt(code);
    }

    /// Reads what is there at this moment, and no more: the device runs on meanwhile.
    void readRest() {
        const snd_pcm_sframes_t available = snd_pcm_avail(m_pcm.get());
        for (snd_pcm_sframes_t read = 0; read < available;) {
            const int frames = readOnce();
            if (frames <= 0)
                return;
            read += frames;
        }
    }

    /// Frames handed on, 0 when there were none, negative when capture cannot go on.
    int readOnce() {
        const snd_pcm_sframes_t frames =
            snd_pcm_readi(m_pcm.get(), m_frames.data(), m_frames.size());
        if (frames > 0)
            m_blocks->add({m_frames.data(), static_cast<std::size_t>(frames)});
        if (frames >= 0 || frames == -EAGAIN)
            return static_cast<int>(std::max<snd_pcm_sframes_t>(frames, 0));
        if (frames != -EPIPE && frames != -ESTRPIPE)
            return static_cast<int>(frames);
        // An overrun or the machine's sleep costs a gap, not the take. (snd_pcm_recover() would
        // wait for whole seconds, and stop() for it.)
        int code = snd_pcm_prepare(m_pcm.get());
        if (code >= 0)
            code = snd_pcm_start(m_pcm.get());
        return std::min(code, 0);
    }

    void interrupt(int code) {
        const Error reason =
            code == -ENODEV ? Error{"the microphone was unplugged"} : alsaError(code);
        m_mainQueue.async(m_lifetime.guard([this, reason] {
            if (!m_thread.joinable())
                return;  // stopped meanwhile
            const Interrupted interrupted = m_interrupted;
            interrupted(reason);  // may destroy this object
        }));
    }

    MainQueue& m_mainQueue;
    EventDescriptor m_stopRequest;
    Interrupted m_interrupted;
    unsigned m_rate = 0;

    // The capture thread's while it runs.
    Pcm m_pcm;
    std::optional<FrameBlocks> m_blocks;
    std::array<float, periodFrames> m_frames{};

    std::thread m_thread;
    Lifetime m_lifetime;
};

/// Takes the access to the device files for the permission.
class AlsaMicrophone final : public Microphone {
  public:
    explicit AlsaMicrophone(MainQueue& mainQueue) : m_mainQueue(mainQueue) {}

    MicrophonePermission authorizationStatus() override {
        const auto opened = openDevice();
        const bool isDenied = !opened && (opened.error() == -EACCES || opened.error() == -EPERM);
        return isDenied ? MicrophonePermission::denied : MicrophonePermission::authorized;
    }
    void requestAccess(std::function<void(bool)> answer) override {
        answer(authorizationStatus() == MicrophonePermission::authorized);
    }
    std::unique_ptr<CaptureEngine> makeEngine() override {
        return std::make_unique<AlsaCapture>(m_mainQueue);
    }

  private:
    MainQueue& m_mainQueue;
};

}  // namespace

std::unique_ptr<Microphone> makeAlsaMicrophone(MainQueue& mainQueue) {
    return std::make_unique<AlsaMicrophone>(mainQueue);
}

}  // namespace nulo
