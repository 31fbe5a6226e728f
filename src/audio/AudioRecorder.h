#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "audio/AudioFileWriter.h"
#include "audio/CaptureEngine.h"
#include "base/Clock.h"
#include "base/Lifetime.h"
#include "base/MainQueue.h"
#include "base/Print.h"
#include "base/Published.h"

namespace nulo {

/// Records one push-to-talk utterance after the other, each to an AAC file of its own, and
/// publishes the microphone's level meanwhile. Main thread. Failures are printed and reported to
/// onFailure, never thrown or returned.
class AudioRecorder {
  public:
    /// Greatest number of levels held.
    static constexpr std::size_t maxLevelSamples = 80;

    /// Makes `recordingsDirectory`, where all takes go, private to this user. The references
    /// outlive the recorder.
    AudioRecorder(Microphone& microphone, MakeAudioFileWriter makeWriter, MainQueue& mainQueue,
                  const Clock& clock, Print print, std::filesystem::path recordingsDirectory);
    ~AudioRecorder();

    /// Asks for the microphone if need be and begins later, on the main queue; ignored while
    /// recording. A stopRecording() that comes before the begin calls it off: nobody would ever end
    /// that take.
    void startRecording();

    /// Ends the take and completes its file. Returns the file, or nothing when there was no take,
    /// it was shorter than 1.5 s (then the file is deleted) or it could not be saved.
    std::optional<std::filesystem::path> stopRecording();

    /// Ends capture and encoder at once and leaves an unfinished file behind: for a program that
    /// can do nothing more with it. Nothing is called or printed; isRecording() stays as it was.
    void abandonRecording();

    /// To read and to subscribe to.
    Published<bool>& isRecording() { return m_isRecording; }
    /// The newest levels of this or the last take, each in 0...1, oldest first.
    Published<std::vector<float>>& audioLevels() { return m_audioLevels; }

    /// Why a take that was asked for is not made, ended early or could not be saved. Main thread.
    std::function<void(const Error& reason)> onFailure;

  private:
    void begin();
    Outcome openFile(double sampleRate);
    Outcome startEngine(std::unique_ptr<CaptureEngine> engine);
    void handleBuffer(std::span<const float> frames);
    void appendLevel(float level);
    void captureInterrupted(const Error& reason);
    void writingFailed(int take, const Error& reason);
    void finishFile();
    /// `line` is for standard output.
    void fail(const std::string& line, const Error& reason);

    Microphone& m_microphone;
    const MakeAudioFileWriter m_makeWriter;
    MainQueue& m_mainQueue;
    const Clock& m_clock;
    const Print m_print;
    const std::filesystem::path m_recordingsDirectory;

    bool m_startIsWanted = false;
    Published<bool> m_isRecording{false};
    Published<std::vector<float>> m_audioLevels;
    std::optional<std::filesystem::path> m_currentFileURL;
    std::optional<Clock::Instant> m_recordingStartTime;
    std::optional<Error> m_saveFailure;
    bool m_saveFailureIsReported = false;
    int m_take = 0;  // counts them, so that what an ended take posted is known from the next one's

    /// The capture thread's from the engine's start to its stop, the main thread's otherwise.
    std::unique_ptr<AudioFileWriter> m_audioFile;
    bool m_writeHasFailed = false;
    std::unique_ptr<CaptureEngine> m_audioEngine;
    Lifetime m_lifetime;
};

}  // namespace nulo
