#include "audio/AudioRecorder.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "audio/Level.h"
#include "base/PrivateFolder.h"

namespace nulo {
namespace {

constexpr std::chrono::milliseconds shortestTake(1500);
constexpr int bitRate = 64000;
constexpr std::string_view permissionDenied = "Microphone permission denied";
constexpr std::string_view notStarted = "Failed to start recording: ";

std::string tooShortLine(std::chrono::duration<double> duration) {
    std::array<char, 32> seconds{};  // with a point in every locale, which printf() has not
    const auto written = std::to_chars(seconds.data(), seconds.data() + seconds.size(),
                                       duration.count(), std::chars_format::fixed, 1);
    return "Recording too short (" + std::string(seconds.data(), written.ptr) +
           "s) \u2014 discarded";
}

std::string savedLine(const std::filesystem::path& file) {
    std::error_code failure;
    const std::uintmax_t size = std::filesystem::file_size(file, failure);
    const std::uintmax_t kilobytes = failure ? 0 : size / 1024;
    return "Recording saved: " + file.filename().string() + " (" + std::to_string(kilobytes) +
           " KB)";
}

}  // namespace

AudioRecorder::AudioRecorder(Microphone& microphone, MakeAudioFileWriter makeWriter,
                             MainQueue& mainQueue, const Clock& clock, Print print,
                             std::filesystem::path recordingsDirectory)
    : m_microphone(microphone),
      m_makeWriter(std::move(makeWriter)),
      m_mainQueue(mainQueue),
      m_clock(clock),
      m_print(std::move(print)),
      m_recordingsDirectory(std::move(recordingsDirectory)) {
    (void)makePrivateFolder(
        m_recordingsDirectory);  // a failure is reported by the take that meets it
}

AudioRecorder::~AudioRecorder() {
    abandonRecording();
}

void AudioRecorder::startRecording() {
    if (m_isRecording.get())
        return;
    m_startIsWanted = true;
    switch (m_microphone.authorizationStatus()) {
        case MicrophonePermission::authorized:
            m_mainQueue.async(m_lifetime.guard([this] { begin(); }));
            return;
        case MicrophonePermission::notDetermined:
            m_microphone.requestAccess(
                [queue = &m_mainQueue, answered = m_lifetime.guard([this](bool granted) {
                    if (granted)
                        begin();
                    else
                        fail(std::string(permissionDenied), {std::string(permissionDenied)});
                })](bool granted) {
                    queue->async([answered, granted]() mutable { answered(granted); });
                });
            return;
        case MicrophonePermission::restricted:
        case MicrophonePermission::denied:
            fail(std::string(permissionDenied), {std::string(permissionDenied)});
            return;
    }
}

void AudioRecorder::begin() {
    if (!m_startIsWanted || m_isRecording.get())
        return;  // let go, or pressed twice, before the first begin ran
    m_audioLevels.set({});
    std::unique_ptr<CaptureEngine> engine = m_microphone.makeEngine();
    const Result<double> sampleRate = engine->inputSampleRate();
    if (!sampleRate)
        return fail(std::string(notStarted) + sampleRate.error().description, sampleRate.error());
    if (!std::isfinite(sampleRate.value()) || sampleRate.value() <= 0) {
        constexpr std::string_view line = "Failed to create tap format";
        return fail(std::string(line), {std::string(line)});
    }
    m_currentFileURL =
        m_recordingsDirectory / ("recording_" + fileTimestamp(m_clock.wallTime()) + ".m4a");
    if (const Outcome opened = openFile(sampleRate.value()); !opened)
        return fail(std::string(notStarted) + opened.error().description, opened.error());
    if (const Outcome started = startEngine(std::move(engine)); !started)
        return fail(std::string(notStarted) + started.error().description, started.error());
    m_recordingStartTime = m_clock.now();
    m_isRecording.set(true);
    m_print("Recording started (AAC): " + m_currentFileURL->filename().string());
}

Outcome AudioRecorder::openFile(double sampleRate) {
    if (Outcome folder = makePrivateFolder(m_recordingsDirectory); !folder)
        return folder;
    auto writer = m_makeWriter(*m_currentFileURL,
                               {.sampleRate = sampleRate, .channels = 1, .bitRate = bitRate});
    if (!writer)
        return writer.error();
    m_audioFile = std::move(writer).value();
    return Success{};
}

Outcome AudioRecorder::startEngine(std::unique_ptr<CaptureEngine> engine) {
    ++m_take;
    m_saveFailure.reset();
    m_saveFailureIsReported = false;
    m_writeHasFailed = false;
    Outcome started = engine->start(
        [this](std::span<const float> frames) { handleBuffer(frames); },
        m_lifetime.guard([this](const Error& reason) { captureInterrupted(reason); }));
    if (started)
        m_audioEngine = std::move(engine);
    return started;
}

void AudioRecorder::handleBuffer(std::span<const float> frames) {
    if (frames.empty())
        return;
    const float level = normalizedLevel(rootMeanSquare(frames));
    m_mainQueue.async(m_lifetime.guard([this, level] { appendLevel(level); }));
    const Outcome written = m_audioFile->write(frames);
    if (!written && !std::exchange(m_writeHasFailed, true))
        m_mainQueue.async(m_lifetime.guard(
            [this, take = m_take, reason = written.error()] { writingFailed(take, reason); }));
}

void AudioRecorder::appendLevel(float level) {
    m_audioLevels.change([level](std::vector<float>& levels) {
        levels.push_back(level);
        if (levels.size() > maxLevelSamples)
            levels.erase(levels.begin());
    });
}

void AudioRecorder::captureInterrupted(const Error& reason) {
    if (!m_audioEngine)
        return;
    finishFile();
    fail("Recording interrupted: " + reason.description, reason);
}

void AudioRecorder::writingFailed(int take, const Error& reason) {
    if (take != m_take || !m_audioEngine)
        return;  // that take has ended
    finishFile();
    m_saveFailure = reason;
    m_saveFailureIsReported = true;
    if (const auto report = onFailure)
        report(reason);
}

void AudioRecorder::finishFile() {
    if (!m_audioEngine)
        return;  // an interruption did it already
    m_audioEngine->stop();
    m_audioEngine.reset();
    if (const Outcome closed = m_audioFile->close(); !closed)
        m_saveFailure = closed.error();
    m_audioFile.reset();
}

std::optional<std::filesystem::path> AudioRecorder::stopRecording() {
    m_startIsWanted = false;
    if (!m_isRecording.get())
        return std::nullopt;
    finishFile();
    m_isRecording.set(false);
    const auto duration = m_clock.now() - m_recordingStartTime.value_or(m_clock.now());
    if (duration < shortestTake) {
        m_print(tooShortLine(duration));
        std::error_code ignored;
        std::filesystem::remove(*m_currentFileURL, ignored);
        return std::nullopt;
    }
    if (m_saveFailure) {
        const std::string line = "Failed to save recording: " + m_saveFailure->description;
        if (m_saveFailureIsReported)
            m_print(line);
        else
            fail(line, *m_saveFailure);
        return std::nullopt;
    }
    m_print(savedLine(*m_currentFileURL));
    return m_currentFileURL;
}

void AudioRecorder::abandonRecording() {
    m_startIsWanted = false;
    if (m_audioEngine)
        m_audioEngine->stop();
    m_audioEngine.reset();
    m_audioFile.reset();
}

void AudioRecorder::fail(const std::string& line, const Error& reason) {
    m_print(line);
    if (const auto report = onFailure)
        report(reason);
}

}  // namespace nulo
