#include "service/AudioDecoder.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <cmath>
#include <fstream>
#include <numbers>

#include "Form.h"
#include "base/FileIO.h"
#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo::service {
namespace {

Result<std::vector<std::int16_t>, Failure> decoded(std::string_view bytes, int seconds = 60) {
    return decodedSpeech(Spool(bytes), std::chrono::seconds(seconds), [] { return true; });
}

/// Two seconds on both channels, AAC in MPEG-4 with its index at the end.
std::string stereoTone(const std::filesystem::path& file) {
    outputOf({"ffmpeg", "-v", "error", "-f", "lavfi", "-i",
              "sine=frequency=440:sample_rate=44100:duration=2,volume=4,pan=stereo|c0=c0|c1=c0",
              file});
    return readFile(file, 1 << 20).value();
}

// Catches lost channels, a wrong rate, and a decoder or resampler that is not flushed.
TEST(AudioDecoder, makesSpeechSamplesOfAnM4aTake) {
    const TemporaryFolder folder;
    const auto samples = decoded(stereoTone(folder / "tone.m4a"));
    ASSERT_TRUE(samples) << samples.error().text;
    EXPECT_NEAR(double(samples.value().size()), 2.0 * speechRate, 800);
    double squares = 0;
    int crossings = 0;
    for (std::size_t i = 8001; i < 24000; ++i) {
        squares += std::pow(samples.value()[i] / 32768.0, 2);
        crossings += (samples.value()[i] < 0) != (samples.value()[i - 1] < 0);
    }
    EXPECT_NEAR(std::sqrt(squares / 16000), 0.5 / std::numbers::sqrt2, 0.03);
    EXPECT_NEAR(crossings, 880, 4);
}

// At 1 Hz a file of 94 bytes was two gigabytes of sound.
TEST(AudioDecoder, refusesRatesThatNobodySpeaksAt) {
    for (const auto& [rate, isHeard] :
         {std::pair{1, false}, {3999, false}, {4000, true}, {192000, true}, {192001, false}}) {
        const std::vector<std::int16_t> second(static_cast<std::size_t>(rate));
        EXPECT_EQ(bool(decoded(speechWav(second, static_cast<std::uint32_t>(rate)))), isHeard);
    }
}

TEST(AudioDecoder, refusesWhatIsNoWholeAudioFile) {
    const TemporaryFolder folder;
    const std::string tone = stereoTone(folder / "real.m4a");
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    const std::string bad[] = {
        "",
        "not audio at all, just a long enough line of text to be looked at closely",
        tone.substr(0, tone.size() / 2),  // its index is missing
        // Lists that would make the library open other files of this machine.
        "#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXTINF:2,\nreal.m4a\n#EXT-X-ENDLIST\n",
        "ffconcat version 1.0\nfile real.m4a\n",
    };
    for (const std::string& bytes : bad)
        EXPECT_EQ(decoded(bytes).error().status, 415) << bytes.substr(0, 20);
    std::filesystem::current_path(before);
    // Small when compressed, too long when decoded.
    EXPECT_EQ(decoded(tone, 1).error().status, 413);
}

TEST(AudioDecoder, outlivesItsProcess) {
    const std::string wav = speechWav(std::vector<std::int16_t>(100));
    for (int times = 0; times < 3; ++times) {
        EXPECT_TRUE(decoded(wav));
        pid_t decoder = 0;
        std::ifstream("/proc/thread-self/children") >> decoder;
        ASSERT_GT(decoder, 0);
        kill(decoder, SIGKILL);
    }
}

}  // namespace
}  // namespace nulo::service
