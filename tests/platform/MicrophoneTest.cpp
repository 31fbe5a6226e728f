#include <gmock/gmock.h>
#include <atomic>
#include <fstream>
#include <numeric>

#include "audio/AudioRecorder.h"
#include "audio/FrameBlocks.h"
#include "fakes/FakeMainQueue.h"
#include "fakes/PrintedLines.h"
#include "platform/Backends.h"
#include "platform/DecodedAudio.h"
#include "platform/sound/PulseConnection.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"
#include "rig/sound/VirtualMicrophone.h"

namespace nulo {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

class PulseMicrophoneTest : public testing::Test {
  protected:
    PulseMicrophoneTest() { setenv("PULSE_SERVER", server.address().c_str(), 1); }
    ~PulseMicrophoneTest() override {
        unsetenv("PULSE_SERVER");
        unsetenv("ALSA_CONFIG_PATH");
    }

    void makeMicrophone() {
        microphone = makePulseMicrophone(
            queue, printed.print(),
            {milliseconds(200), milliseconds(20), milliseconds(50), milliseconds(300)});
    }
    /// The rate to record at, or why there is none.
    std::string rate() {
        const auto rate = microphone->makeEngine()->inputSampleRate();
        return rate ? std::to_string(std::lround(rate.value())) : rate.error().description;
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
    }
    void record(int levels) {
        const int end = loudLevels + levels;
        ASSERT_TRUE(pumpUntil([&] { return loudLevels >= end; }))
            << testing::PrintToString(printed.lines());
    }
    DecodedAudio stopTake() {
        clock.advance(milliseconds(2000));
        return DecodedAudio(recorder->stopRecording().value());
    }
    bool pumpUntil(const std::function<bool()>& condition) {
        return waitUntil([&] { return queue.runPending(), condition(); });
    }
    bool waitForLine(const std::string& part) {
        const auto isPrinted = testing::Matches(testing::Contains(HasSubstr(part)));
        return pumpUntil([&] { return isPrinted(printed.lines()); });
    }

    VirtualMicrophone server;
    TemporaryFolder folder;
    PrintedLines printed;
    FakeClock clock;
    FakeMainQueue queue;
    std::unique_ptr<Microphone> microphone;
    std::optional<AudioRecorder> recorder;
    Subscription levelSubscription;
    int loudLevels = 0;
};

// Another device's rate; the desktop's indicator lit between takes; a gap in the sound; a call
// after stop(), into a closed file of a recorder that is gone.
TEST_F(PulseMicrophoneTest, recordsWhatIsHeardAtTheDevicesRate) {
    makeMicrophone();
    ASSERT_TRUE(waitFor("48000"));
    server.playTone(480);
    server.plugMicrophone("phone", 16000);
    ASSERT_TRUE(waitFor("16000"));
    server.plugMicrophone("odd", 37800);  // which the encoder does not take
    ASSERT_TRUE(waitFor("48000"));
    EXPECT_EQ(server.recordingCount(), 0);
    for (int take = 0; take < 2; ++take) {
        startRecorder();
        record(30);
        EXPECT_EQ(server.recordingCount(), 1);
        const DecodedAudio audio = stopTake();
        EXPECT_TRUE(waitUntil([&] { return server.recordingCount() == 0; }));
        EXPECT_EQ(audio.format, "aac,48000,1");
        EXPECT_GT(audio.duration, 0.6);
        // All of the sound is the tone, in its place: a gap would break its phase.
        EXPECT_NEAR(audio.amplitudeAt(0.01), audio.rootMeanSquare() * 1.414, 0.1);
        EXPECT_GT(audio.amplitudeAt(0.01), 0.3);
    }
    for (int i = 0; i < 30; ++i) {
        const auto engine = microphone->makeEngine();
        auto frames = std::make_unique<std::atomic<std::size_t>>(0);
        ASSERT_TRUE(engine->start([&](std::span<const float> part) { *frames += part.size(); },
                                  [](const Error&) {}));
        std::this_thread::sleep_for(milliseconds(i));
        EXPECT_TRUE(i > 0 || waitUntil([&] { return *frames > 0; }));
        engine->stop();
        // What the server sends fills no whole number of blocks; the rest is the last word's end.
        EXPECT_TRUE(i > 0 || *frames % FrameBlocks::length != 0);
        frames.reset();
    }
}

// A take that is lost, or goes on without a sound or with what the speakers play, when a microphone
// is unplugged or the server dies; a program that has to be started again after it.
TEST_F(PulseMicrophoneTest, keepsTheTakeAndGoesOnWithWhatThereIs) {
    server.plugMicrophone("headset");
    server.playTone(480);
    makeMicrophone();
    ASSERT_TRUE(waitFor("48000"));
    startRecorder();
    record(1);
    server.unplugMicrophone("headset");
    record(30);
    EXPECT_THAT(printed.lines(), testing::Each(testing::Not(HasSubstr("interrupted"))));
    server.unplugMicrophone();  // leaves the speakers' monitor as the default source
    EXPECT_TRUE(waitForLine("Recording interrupted: the microphone was unplugged"));
    EXPECT_GT(stopTake().duration, 0.6);  // what was said until then
    EXPECT_TRUE(waitFor("no microphone is connected"));
    server.plugMicrophone();
    EXPECT_TRUE(waitFor("48000"));
    startRecorder();
    record(20);
    server.kill();
    EXPECT_TRUE(waitForLine("Recording interrupted: the sound server has gone"));
    EXPECT_GT(stopTake().duration, 0.3);
    EXPECT_TRUE(waitFor("no sound server is running"));
    server.start();
    EXPECT_TRUE(waitFor("48000"));

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
    makeMicrophone();
    EXPECT_EQ(rate(), "the sound server does not answer");
    server.thaw();
    ASSERT_TRUE(waitFor("48000"));
    server.freeze();
    startRecorder();
    EXPECT_TRUE(waitForLine("The sound server does not answer"));
    recorder->stopRecording();
    server.thaw();

    server.playTone(480);
    startRecorder();
    record(1);
    server.suspendMicrophone(true);
    EXPECT_TRUE(waitForLine("The microphone delivers no sound"));
    server.suspendMicrophone(false);
    record(10);
}

// Frames that are lost or come in another order.
TEST(AlsaMicrophone, readsTheDeviceUntilItIsStopped) {
    const TemporaryFolder folder;
    std::vector<float> sound(5000);
    std::iota(sound.begin(), sound.end(), 1.0F);
    const std::string_view bytes(reinterpret_cast<char*>(sound.data()), 5000 * sizeof(float));
    std::ofstream(folder / "sound.raw", std::ios::binary) << bytes;
    std::ofstream(folder / "alsa.conf")
        << "pcm.default { type plug slave.pcm { type file slave.pcm { type null } file /dev/null "
        << "infile \"" << (folder / "sound.raw").string() << "\" format raw } }";
    setenv("ALSA_CONFIG_PATH", (folder / "alsa.conf").c_str(), 1);
    FakeMainQueue queue;
    const auto engine = makeAlsaMicrophone(queue)->makeEngine();
    ASSERT_EQ(engine->inputSampleRate().value(), 48000);
    std::vector<float> heard;
    std::atomic<std::size_t> count = 0;
    const auto tap = [&](std::span<const float> frames) {
        heard.insert(heard.end(), frames.begin(), frames.end());
        count += frames.size();
    };
    ASSERT_TRUE(engine->start(tap, [](const Error& error) { FAIL() << error.description; }));
    EXPECT_TRUE(waitUntil([&] { return count >= sound.size(); }));
    engine->stop();
    heard.resize(sound.size());
    EXPECT_EQ(heard, sound);
    unsetenv("ALSA_CONFIG_PATH");
}

}  // namespace
}  // namespace nulo
