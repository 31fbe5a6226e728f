#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <vector>

#include "fakes/FakeMainQueue.h"
#include "fakes/PrintedLines.h"
#include "platform/Backends.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"
#include "rig/sound/VirtualMicrophone.h"

namespace nulo {
namespace {

/// libasound led by a configuration of the test's own, without a sound card.
class AlsaMicrophoneTest : public testing::Test {
  protected:
    ~AlsaMicrophoneTest() override { unsetenv("ALSA_CONFIG_PATH"); }

    void configure(const std::string& text) {
        // A file of its own each: libasound does not see that one changed within a second.
        const std::filesystem::path file = folder / (std::to_string(++m_configurations) + ".conf");
        std::ofstream(file) << text;
        setenv("ALSA_CONFIG_PATH", file.c_str(), 1);
        microphone = makeAlsaMicrophone(queue, printed.print());
    }

    TemporaryFolder folder;
    FakeMainQueue queue;
    PrintedLines printed;
    std::unique_ptr<Microphone> microphone;

  private:
    int m_configurations = 0;
};

TEST_F(AlsaMicrophoneTest, saysThatThereIsNoMicrophoneAndKeepsStderrClean) {
    for (const std::string config : {"", "pcm.default { type hw card 31 }"}) {
        configure(config);
        testing::internal::CaptureStderr();
        EXPECT_EQ(microphone->authorizationStatus(), MicrophonePermission::authorized);
        const auto rate = microphone->makeEngine()->inputSampleRate();
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        ASSERT_FALSE(rate);
        EXPECT_EQ(rate.error().description, "no microphone is connected");
        EXPECT_FALSE(microphone->makeEngine()->start([](auto) {}, [](const Error&) {}));
    }
}

TEST_F(AlsaMicrophoneTest, readsTheDeviceUntilItIsStopped) {
    std::vector<float> sound(5000);
    for (std::size_t i = 0; i < sound.size(); ++i)
        sound[i] = static_cast<float>(i % 100) / 100;
    std::ofstream(folder / "sound.raw", std::ios::binary)
        .write(reinterpret_cast<const char*>(sound.data()),
               static_cast<std::streamsize>(sound.size() * sizeof(float)));
    configure(
        "pcm.default { type plug slave.pcm { type file slave.pcm { type null } file /dev/null "
        "infile \"" +
        (folder / "sound.raw").string() + "\" format raw } }");

    const auto engine = microphone->makeEngine();
    const auto rate = engine->inputSampleRate();
    ASSERT_TRUE(rate) << rate.error().description;
    EXPECT_EQ(rate.value(), 48000);
    auto heard = std::make_unique<std::vector<float>>();
    std::atomic<std::size_t> count = 0;
    const auto tap = [&](std::span<const float> frames) {
        if (heard->size() < sound.size())
            heard->insert(heard->end(), frames.begin(), frames.end());
        count += frames.size();
    };
    ASSERT_TRUE(engine->start(tap, [](const Error& error) { FAIL() << error.description; }));
    EXPECT_TRUE(waitUntil([&] { return count >= sound.size(); }));
    engine->stop();
    heard->resize(sound.size());
    EXPECT_EQ(*heard, sound);
    heard.reset();  // a tap call after the stop would reach into it
    engine->stop();
    queue.runPending();
}

// A device with a clock of its own: nothing may be lost at its pace, and its end be noticed.
TEST_F(AlsaMicrophoneTest, reportsADeviceThatGoesAway) {
    VirtualMicrophone server;
    server.playTone(440);
    configure("pcm.default { type plug slave.pcm { type pulse server \"" + server.address() +
              "\" } }");
    const auto engine = microphone->makeEngine();
    std::atomic<int> loudFrames = 0;
    std::string reason;
    const Outcome started = engine->start(
        [&](std::span<const float> frames) {
            loudFrames +=
                static_cast<int>(std::ranges::count_if(frames, [](float s) { return s > 0.1F; }));
        },
        [&](const Error& error) { reason = error.description; });
    ASSERT_TRUE(started) << started.error().description;
    EXPECT_TRUE(waitUntil([&] { return loudFrames > 10000; }));
    EXPECT_EQ(reason, "");
    server.kill();
    EXPECT_TRUE(waitUntil([&] {
        queue.runPending();
        return !reason.empty();
    }));
    EXPECT_EQ(reason, "the microphone failed: Input/output error");
    engine->stop();
}

TEST_F(AlsaMicrophoneTest, asksForARateThatTheEncoderTakes) {
    configure("pcm.default { type plug slave { pcm { type null } rate 37800 } }");
    const auto rate = microphone->makeEngine()->inputSampleRate();
    ASSERT_TRUE(rate) << rate.error().description;
    EXPECT_EQ(rate.value(), 48000);
    configure("pcm.default { type plug slave { pcm { type null } rate 44100 } }");
    EXPECT_EQ(microphone->makeEngine()->inputSampleRate().value(), 44100);
}

}  // namespace
}  // namespace nulo
