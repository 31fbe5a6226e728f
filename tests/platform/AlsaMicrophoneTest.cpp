#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <numeric>

#include "fakes/FakeMainQueue.h"
#include "platform/Backends.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

TEST(AlsaMicrophone, readsTheDeviceUntilItIsStopped) {
    const TemporaryFolder folder;
    std::vector<float> sound(5000);
    std::iota(sound.begin(), sound.end(), 1.0F);
    std::ofstream(folder / "sound.raw", std::ios::binary)
        .write(reinterpret_cast<const char*>(sound.data()),
               static_cast<std::streamsize>(sound.size() * sizeof(float)));
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
        if (heard.size() < sound.size())
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
