#include <gmock/gmock.h>

#include <atomic>
#include <cstdlib>
#include <fstream>

#include "audio/AudioRecorder.h"
#include "fakes/FakeMainQueue.h"
#include "fakes/PrintedLines.h"
#include "platform/Backends.h"
#include "platform/DecodedAudio.h"
#include "platform/sound/PulseConnection.h"
#include "rig/process/FakeClock.h"
#include "rig/process/WaitUntil.h"
#include "rig/sound/VirtualMicrophone.h"

namespace nulo {
namespace {

using std::chrono::milliseconds;
using testing::Contains;
using testing::HasSubstr;

class PulseMicrophoneTest : public testing::Test {
  protected:
    PulseMicrophoneTest() { setenv("PULSE_SERVER", server.address().c_str(), 1); }
    ~PulseMicrophoneTest() override {
        recorder.reset();
        microphone.reset();
        unsetenv("PULSE_SERVER");
        unsetenv("ALSA_CONFIG_PATH");
    }

    void makeMicrophone() { microphone = makePulseMicrophone(queue, printed.print(), timings); }
    std::string sampleRateError() {
        const auto rate = microphone->makeEngine()->inputSampleRate();
        return rate ? "" : rate.error().description;
    }
    bool waitForSampleRate(double expected) {
        return waitUntil([&] {
            const auto rate = microphone->makeEngine()->inputSampleRate();
            return rate && rate.value() == expected;
        });
    }
    bool waitForError(const std::string& expected) {
        return waitUntil([&] { return sampleRateError() == expected; });
    }

    /// Starts a take of a recorder on this microphone and waits for its first sound.
    void startTake() {
        recorder.emplace(*microphone, makeAacFileWriter, queue, clock, printed.print(),
                         folder.path());
        levelSubscription = recorder->audioLevels().subscribe([this](const auto& levels) {
            soundHeard = soundHeard || (!levels.empty() && levels.back() > 0);
            levelCount += !levels.empty();
        });
        recorder->startRecording();
        queue.runPending();
        ASSERT_TRUE(recorder->isRecording().get()) << testing::PrintToString(printed.lines());
        ASSERT_TRUE(pumpUntil([&] { return soundHeard; }));
    }
    void recordBuffers(int count) {
        const int end = levelCount + count;
        ASSERT_TRUE(pumpUntil([&] { return levelCount >= end; }));
    }
    std::optional<DecodedAudio> stopTake() {
        clock.advance(milliseconds(2000));
        const auto file = recorder->stopRecording();
        return file ? std::optional(decodeAudioFile(*file)) : std::nullopt;
    }
    template <typename Condition>
    bool pumpUntil(Condition condition) {
        return waitUntil([&] {
            queue.runPending();
            return condition();
        });
    }
    bool waitForLine(const std::string& part) {
        return pumpUntil(
            [&] { return testing::Matches(Contains(HasSubstr(part)))(printed.lines()); });
    }

    VirtualMicrophone server;
    TemporaryFolder folder;
    PulseTimings timings{milliseconds(200), milliseconds(20), milliseconds(50), milliseconds(300)};
    PrintedLines printed;
    FakeClock clock;
    FakeMainQueue queue;
    std::unique_ptr<Microphone> microphone;
    std::optional<AudioRecorder> recorder;
    Subscription levelSubscription;
    bool soundHeard = false;
    int levelCount = 0;
};

TEST_F(PulseMicrophoneTest, recordsWhatIsHeardAtTheDevicesRate) {
    makeMicrophone();
    ASSERT_TRUE(waitForSampleRate(48000));
    EXPECT_EQ(microphone->authorizationStatus(), MicrophonePermission::authorized);
    EXPECT_EQ(server.recordingCount(), 0);  // the desktop's indicator stays dark between takes
    server.playTone(440);
    for (int take = 0; take < 2; ++take) {
        soundHeard = false;
        startTake();
        recordBuffers(40);
        EXPECT_EQ(server.recordingCount(), 1);
        const auto audio = stopTake();
        ASSERT_TRUE(audio);
        EXPECT_TRUE(waitUntil([&] { return server.recordingCount() == 0; }));
        EXPECT_EQ(audio->codec, "aac");
        EXPECT_EQ(audio->sampleRate, 48000);
        EXPECT_EQ(audio->channels, 1);
        EXPECT_GT(audio->duration, 0.7);
        // All of the sound is the tone, in its place: a gap would break its phase.
        EXPECT_NEAR(audio->amplitudeAt(440, 0.2), audio->rootMeanSquare() * 1.414, 0.1);
        EXPECT_GT(audio->amplitudeAt(440, 0.2), 0.3);
    }
}

// A tap call after stop() would write into a closed file of a recorder that is gone.
TEST_F(PulseMicrophoneTest, hasNoTapCallAfterItsStop) {
    makeMicrophone();
    ASSERT_TRUE(waitForSampleRate(48000));
    for (int i = 0; i < 30; ++i) {
        const auto engine = microphone->makeEngine();
        auto frames = std::make_unique<std::size_t>(0);
        ASSERT_TRUE(engine->start([&](std::span<const float> part) { *frames += part.size(); },
                                  [](const Error&) {}));
        std::this_thread::sleep_for(milliseconds(i));
        engine->stop();
        frames.reset();
    }
}

TEST_F(PulseMicrophoneTest, refusesToRecordWhatTheSpeakersPlay) {
    makeMicrophone();
    ASSERT_TRUE(waitForSampleRate(48000));
    server.unplugMicrophone();  // leaves the speakers' monitor as the default source
    EXPECT_TRUE(waitForError("no microphone is connected"));
    server.plugMicrophone();
    EXPECT_TRUE(waitForSampleRate(48000));
}

TEST_F(PulseMicrophoneTest, endsTheTakeWhenTheLastMicrophoneIsUnplugged) {
    makeMicrophone();
    ASSERT_TRUE(waitForSampleRate(48000));
    server.playTone(440);
    startTake();
    recordBuffers(20);
    server.unplugMicrophone();
    EXPECT_TRUE(waitForLine("Recording interrupted: the microphone was unplugged"));
    EXPECT_TRUE(recorder->isRecording().get());
    const auto audio = stopTake();
    ASSERT_TRUE(audio);
    EXPECT_GT(audio->duration, 0.3);
}

TEST_F(PulseMicrophoneTest, goesOnWithAnotherMicrophone) {
    makeMicrophone();
    server.plugMicrophone("headset");
    ASSERT_TRUE(waitForSampleRate(48000));
    server.playTone(440);
    startTake();
    server.unplugMicrophone("headset");
    recordBuffers(40);
    EXPECT_TRUE(stopTake());
    EXPECT_THAT(printed.lines(), testing::Each(testing::Not(HasSubstr("interrupted"))));
}

TEST_F(PulseMicrophoneTest, keepsTheTakeWhenTheServerDiesAndFindsTheNextOne) {
    makeMicrophone();
    ASSERT_TRUE(waitForSampleRate(48000));
    server.playTone(440);
    startTake();
    recordBuffers(20);
    server.kill();
    EXPECT_TRUE(waitForLine("Recording interrupted: the sound server has gone"));
    const auto audio = stopTake();
    ASSERT_TRUE(audio);
    EXPECT_GT(audio->duration, 0.3);

    EXPECT_TRUE(waitForError("no sound server is running"));
    recorder->startRecording();
    queue.runPending();
    EXPECT_EQ(printed.lines().back(), "Failed to start recording: no sound server is running");
    server.start();
    EXPECT_TRUE(waitForSampleRate(48000));
}

TEST_F(PulseMicrophoneTest, givesWayToAlsaWhileNoServerRuns) {
    server.kill();
    std::ofstream(folder / "alsa.conf")
        << "pcm.default { type plug slave { pcm { type null } rate 44100 } }";
    setenv("ALSA_CONFIG_PATH", (folder / "alsa.conf").c_str(), 1);
    microphone = nulo::makeMicrophone(queue, printed.print());
    EXPECT_TRUE(waitForSampleRate(44100));
    EXPECT_EQ(microphone->authorizationStatus(), MicrophonePermission::authorized);
    server.start();
    EXPECT_TRUE(waitForSampleRate(48000));
}

// Waiting for a hung server on the main thread would hang this test with it.
TEST_F(PulseMicrophoneTest, doesNotWaitForAHungServer) {
    server.freeze();
    makeMicrophone();
    EXPECT_EQ(sampleRateError(), "the sound server does not answer");
    server.thaw();
    ASSERT_TRUE(waitForSampleRate(48000));

    server.freeze();
    recorder.emplace(*microphone, makeAacFileWriter, queue, clock, printed.print(), folder.path());
    recorder->startRecording();
    queue.runPending();
    EXPECT_TRUE(waitForLine("The sound server does not answer"));
    EXPECT_TRUE(stopTake());
    recorder.reset();
    microphone.reset();
    server.thaw();
}

TEST_F(PulseMicrophoneTest, saysSoWhenTheMicrophoneDeliversNothing) {
    makeMicrophone();
    ASSERT_TRUE(waitForSampleRate(48000));
    server.playTone(440);
    startTake();
    server.suspendMicrophone(true);
    EXPECT_TRUE(waitForLine("The microphone delivers no sound"));
    server.suspendMicrophone(false);
    recordBuffers(10);
    EXPECT_TRUE(stopTake());
}

TEST_F(PulseMicrophoneTest, recordsAtARateThatTheEncoderTakes) {
    server.plugMicrophone("odd", 37800);
    server.playTone(440);
    makeMicrophone();
    ASSERT_TRUE(waitForSampleRate(48000));
    server.plugMicrophone("phone", 16000);
    ASSERT_TRUE(waitForSampleRate(16000));
    startTake();
    recordBuffers(20);
    const auto audio = stopTake();
    ASSERT_TRUE(audio);
    EXPECT_EQ(audio->sampleRate, 16000);
    EXPECT_GT(audio->amplitudeAt(440, 0.1), 0.3);
}

}  // namespace
}  // namespace nulo
