#include <gmock/gmock.h>

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
        unsetenv("PULSE_SERVER");
        unsetenv("ALSA_CONFIG_PATH");
    }

    void makeMicrophone() {
        microphone = makePulseMicrophone(queue, printed.print(), timings);
        ASSERT_TRUE(waitFor("48000"));
        server.playTone(480);
    }
    /// The rate to record at, or why there is none.
    std::string rate() {
        const auto rate = microphone->makeEngine()->inputSampleRate();
        return rate ? std::to_string(static_cast<int>(rate.value())) : rate.error().description;
    }
    bool waitFor(const std::string& expected) {
        return waitUntil([&] { return rate() == expected; });
    }

    void startRecorder() {
        recorder.emplace(*microphone, makeAacFileWriter, queue, clock, printed.print(),
                         folder.path());
        levelSubscription = recorder->audioLevels().subscribe(
            [this](const auto& levels) { loudLevels += !levels.empty() && levels.back() > 0; });
        recorder->startRecording();
        queue.runPending();
    }
    void record(int levels) {
        const int end = loudLevels + levels;
        ASSERT_TRUE(pumpUntil([&] { return loudLevels >= end; }))
            << testing::PrintToString(printed.lines());
    }
    DecodedAudio stopTake() {
        clock.advance(milliseconds(2000));
        const auto file = recorder->stopRecording();
        return file ? decodeAudioFile(*file) : DecodedAudio{};
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
    int loudLevels = 0;
};

TEST_F(PulseMicrophoneTest, recordsWhatIsHeardAtTheDevicesRate) {
    makeMicrophone();
    server.plugMicrophone("phone", 16000);
    ASSERT_TRUE(waitFor("16000"));
    server.plugMicrophone("odd", 37800);  // which the encoder does not take
    ASSERT_TRUE(waitFor("48000"));
    EXPECT_EQ(server.recordingCount(), 0);  // the desktop's indicator stays dark between takes
    for (int take = 0; take < 2; ++take) {
        startRecorder();
        record(40);
        EXPECT_EQ(server.recordingCount(), 1);
        const DecodedAudio audio = stopTake();
        EXPECT_TRUE(waitUntil([&] { return server.recordingCount() == 0; }));
        EXPECT_EQ(audio.format, "aac,48000,1");
        EXPECT_GT(audio.duration, 0.8);
        // All of the sound is the tone, in its place: a gap would break its phase.
        EXPECT_NEAR(audio.amplitudeAt(0.01), audio.rootMeanSquare() * 1.414, 0.1);
        EXPECT_GT(audio.amplitudeAt(0.01), 0.3);
    }
}

// A tap call after stop() would write into a closed file of a recorder that is gone.
TEST_F(PulseMicrophoneTest, hasNoTapCallAfterItsStop) {
    makeMicrophone();
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

TEST_F(PulseMicrophoneTest, goesOnWithAnotherMicrophoneAndNotWithWhatTheSpeakersPlay) {
    server.plugMicrophone("headset");
    makeMicrophone();
    startRecorder();
    record(1);
    server.unplugMicrophone("headset");
    record(40);
    EXPECT_THAT(printed.lines(), testing::Each(testing::Not(HasSubstr("interrupted"))));
    server.unplugMicrophone();  // leaves the speakers' monitor as the default source
    EXPECT_TRUE(waitForLine("Recording interrupted: the microphone was unplugged"));
    EXPECT_TRUE(recorder->isRecording().get());
    EXPECT_GT(stopTake().duration, 0.8);  // what was said until then
    EXPECT_TRUE(waitFor("no microphone is connected"));
    server.plugMicrophone();
    EXPECT_TRUE(waitFor("48000"));
}

TEST_F(PulseMicrophoneTest, keepsTheTakeWhenTheServerDiesAndFindsTheNextOne) {
    makeMicrophone();
    startRecorder();
    record(20);
    server.kill();
    EXPECT_TRUE(waitForLine("Recording interrupted: the sound server has gone"));
    EXPECT_GT(stopTake().duration, 0.3);
    EXPECT_TRUE(waitFor("no sound server is running"));
    server.start();
    EXPECT_TRUE(waitFor("48000"));
}

TEST_F(PulseMicrophoneTest, givesWayToAlsaWhileNoServerRuns) {
    server.kill();
    std::ofstream(folder / "alsa.conf")
        << "pcm.default { type plug slave { pcm { type null } rate 44100 } }";
    setenv("ALSA_CONFIG_PATH", (folder / "alsa.conf").c_str(), 1);
    microphone = nulo::makeMicrophone(queue, printed.print());
    EXPECT_TRUE(waitFor("44100"));
    EXPECT_EQ(microphone->authorizationStatus(), MicrophonePermission::authorized);
    server.start();
    EXPECT_TRUE(waitFor("48000"));
}

// Waiting for a hung server on the main thread would hang this test with it.
TEST_F(PulseMicrophoneTest, doesNotWaitForAHungServerAndSaysThatNothingIsHeard) {
    server.freeze();
    microphone = makePulseMicrophone(queue, printed.print(), timings);
    EXPECT_EQ(rate(), "the sound server does not answer");
    server.thaw();
    ASSERT_TRUE(waitFor("48000"));
    server.freeze();
    startRecorder();
    EXPECT_TRUE(waitForLine("The sound server does not answer"));
    stopTake();
    server.thaw();

    server.playTone(480);
    startRecorder();
    record(1);
    server.suspendMicrophone(true);
    EXPECT_TRUE(waitForLine("The microphone delivers no sound"));
    server.suspendMicrophone(false);
    record(10);
}

}  // namespace
}  // namespace nulo
