#include <gmock/gmock.h>
#include <sys/wait.h>

#include <csignal>
#include <fstream>

#include "base/FileIO.h"
#include "platform/Backends.h"
#include "platform/DecodedAudio.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"
#include "support/FileSizeLimit.h"

namespace nulo {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

std::vector<float> tone(int frames, double rate = 48000) {
    std::vector<float> samples(frames);
    for (int i = 0; i < frames; ++i)
        samples[i] = 0.5F * static_cast<float>(std::sin(2 * std::numbers::pi * 440 * i / rate));
    return samples;
}

class AacFileWriterTest : public testing::Test {
  protected:
    static std::unique_ptr<AudioFileWriter> makeWriter(const fs::path& path, double rate = 48000) {
        return makeAacFileWriter(path, {.sampleRate = rate}).value();
    }
    /// Why no file came of it.
    std::string recordTenSeconds() const {
        const auto writer = makeWriter(take);
        for (int i = 0; i < 10; ++i)
            (void)writer->write(tone(48000));  // close() says it again
        const Outcome closed = writer->close();
        return closed ? "" : closed.error().description;
    }
    /// The one that this thread has started last; one before may still be on its way out.
    static pid_t encoder() {
        std::ifstream children("/proc/thread-self/children");
        pid_t newest = 0;
        for (pid_t process = 0; children >> process;)
            newest = process;
        return newest;
    }
    /// Where a reader of a pipe needs it.
    bool hasItsIndexInFront() const {
        const std::string bytes = readFile(take, 4 << 20).value();
        return bytes.find("moov") < bytes.find("mdat");
    }

    const TemporaryFolder folder;
    const fs::path take = folder / "take: é.m4a";
};

// Buffers that are no multiple of the encoder's frame, a lost tail, a rounded duration, an index
// that readers of a pipe reach too late.
TEST_F(AacFileWriterTest, keepsEverySampleOfBuffersOfAnyLength) {
    for (const double rate : {16000.0, 44100.0, 96000.0}) {
        std::vector<float> samples = tone(static_cast<int>(rate) + 7, rate);
        // One of these makes the encoder refuse a frame and the next.
        samples[100] = std::numeric_limits<float>::quiet_NaN();
        samples.back() = std::numeric_limits<float>::infinity();
        const auto writer = makeWriter(take, rate);
        std::span<const float> rest(samples);
        for (std::size_t i = 0; !rest.empty(); ++i) {
            const std::size_t lengths[] = {1023, 83, 1, 4800, 1024};
            const std::size_t length = std::min(lengths[i % 5], rest.size());
            ASSERT_TRUE(writer->write(rest.first(length)));
            rest = rest.subspan(length);
        }
        ASSERT_TRUE(writer->close());
        EXPECT_FALSE(writer->close());
        EXPECT_FALSE(writer->write(samples));
        const DecodedAudio audio(take);
        EXPECT_EQ(audio.format, "aac," + std::to_string(static_cast<int>(rate)) + ",1");
        EXPECT_NEAR(audio.duration, static_cast<double>(samples.size()) / rate, 0.5 / rate);
        EXPECT_NEAR(audio.rootMeanSquare(), 0.5 / std::numbers::sqrt2, 0.01);
        EXPECT_GE(audio.frames.size(), samples.size());
        EXPECT_TRUE(hasItsIndexInFront());
    }
    ASSERT_TRUE(makeWriter(take)->close());
    EXPECT_EQ(DecodedAudio(take).rootMeanSquare(), 0);  // without any sound, yet playable
    EXPECT_FALSE(makeAacFileWriter(take, {.sampleRate = 47999}));
    EXPECT_FALSE(makeAacFileWriter(folder / "none/take.m4a", {}));
}

// It begins its file again, with room for the index.
TEST_F(AacFileWriterTest, losesNothingOfALongTake) {
    const auto writer = makeWriter(take, 8000);
    const std::vector<float> loud = tone(5 * 8000, 8000), silence(5 * 8000);
    for (int second = 0; second < 250; second += 5) {
        // Silence is encoded in no time.
        ASSERT_TRUE(writer->write(second < 5 || second >= 230 ? loud : silence));
        // It sleeps when it has taken all that it was sent.
        ASSERT_TRUE(waitUntil([stat = "/proc/" + std::to_string(encoder()) + "/stat"] {
            return (std::stringstream() << std::ifstream(stat).rdbuf()).str().find(") S ") !=
                   std::string::npos;
        }));
    }
    ASSERT_TRUE(writer->close());
    const DecodedAudio audio(take);
    EXPECT_NEAR(audio.duration, 250, 1e-4);
    const double share = (5 - 1.25 + 20) / (250 - 1.25);
    EXPECT_NEAR(audio.amplitudeAt(0.055), 0.5 * share, 0.001);  // a gap would break its phase
    EXPECT_TRUE(hasItsIndexInFront());
    EXPECT_EQ(fs::status(take).permissions(), fs::perms(0600));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 1);
}

TEST_F(AacFileWriterTest, isReadableByItsOwnerOnlyAndFollowsNoLink) {
    std::ofstream(folder / "precious") << "precious";
    fs::create_symlink(folder / "precious", take);
    // A writer that was dropped unclosed does not reach into the file that took its path.
    auto abandoned = makeWriter(take);
    ASSERT_TRUE(abandoned->write(tone(48000)));
    EXPECT_EQ(fs::symlink_status(take).type(), fs::file_type::regular);
    EXPECT_EQ(fs::status(take).permissions(), fs::perms(0600));
    const auto second = makeWriter(take);
    ASSERT_TRUE(second->write(tone(24000)));
    abandoned.reset();
    ASSERT_TRUE(second->close());
    EXPECT_NEAR(DecodedAudio(take).duration, 0.5, 1e-4);
    EXPECT_EQ(readFile(folder / "precious", 100), "precious");
}

// Full before and amid the sound, and when the index is moved in front of it at the end.
TEST_F(AacFileWriterTest, removesTheFileAndSaysSoWhenTheDiskIsFull) {
    ASSERT_EQ(recordTenSeconds(), "");
    const rlim_t size = fs::file_size(take);
    for (const rlim_t most : {rlim_t{1}, size / 2, size - 10}) {
        const FileSizeLimit disk(most);
        EXPECT_THAT(recordTenSeconds(), HasSubstr("File too large")) << most;
        EXPECT_TRUE(fs::is_empty(folder.path()));
    }
}

// Waiting would hold the main thread: at the end, and in the take through the capture thread's
// lock.
TEST_F(AacFileWriterTest, endsWithAnEncoderThatDiesOrHangsAndWaitsForNone) {
    for (const auto& [number, seconds, failure] : {std::tuple(SIGKILL, 30, "the encoder has ended"),
                                                   {SIGSTOP, 5, "the encoder hangs"},
                                                   {SIGSTOP, 30, "the encoder does not keep up"}}) {
        const auto writer = makeWriter(take);
        ASSERT_TRUE(writer->write(tone(1024)));
        ASSERT_EQ(kill(encoder(), number), 0);
        bool failed = false;
        for (int second = 0; second < seconds && !failed; ++second)
            failed = !writer->write(tone(48000));
        EXPECT_EQ(failed, seconds == 30);  // in the take, not only at its end
        const Outcome closed = writer->close();
        EXPECT_THAT(closed ? "" : closed.error().description, HasSubstr(failure));
        EXPECT_TRUE(fs::is_empty(folder.path()));
    }
}

TEST_F(AacFileWriterTest, completesTheFileWhenTheProgramIsKilled) {
    const pid_t program = fork();
    if (program == 0) {
        const auto writer = makeWriter(take);
        (void)writer->write(tone(48000));
        raise(SIGKILL);
    }
    waitpid(program, nullptr, 0);
    EXPECT_TRUE(waitUntil(
        [&] { return readFile(take, 1 << 20).value_or("").find("moov") != std::string::npos; }));
    EXPECT_NEAR(DecodedAudio(take).duration, 1, 1e-4);
}

}  // namespace
}  // namespace nulo
