#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <numbers>

#include "platform/Backends.h"
#include "platform/DecodedAudio.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

using testing::HasSubstr;

std::vector<float> tone(int frames, double rate) {
    std::vector<float> samples(frames);
    for (int i = 0; i < frames; ++i)
        samples[i] = 0.5F * static_cast<float>(std::sin(2 * std::numbers::pi * 440 * i / rate));
    return samples;
}

std::unique_ptr<AudioFileWriter> makeWriter(const std::filesystem::path& path,
                                            double rate = 48000) {
    auto writer = makeAacFileWriter(path, {.sampleRate = rate, .channels = 1, .bitRate = 64000});
    EXPECT_TRUE(writer) << (writer ? "" : writer.error().description);
    return writer ? std::move(writer).value() : nullptr;
}

// Buffers that are no multiple of the encoder's frame, a lost tail, a rounded duration.
TEST(AacFileWriter, keepsEverySampleOfBuffersOfAnyLength) {
    const TemporaryFolder folder;
    for (const double rate : {16000.0, 44100.0, 48000.0, 96000.0}) {
        const std::filesystem::path path =
            folder / ("take: é " + std::to_string(int(rate)) + ".m4a");
        const std::vector<float> samples = tone(static_cast<int>(rate) + 7, rate);
        const auto writer = makeWriter(path, rate);
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

        const DecodedAudio audio = decodeAudioFile(path);
        EXPECT_EQ(audio.codec, "aac");
        EXPECT_EQ(audio.sampleRate, static_cast<int>(rate));
        EXPECT_EQ(audio.channels, 1);
        EXPECT_NEAR(audio.duration, static_cast<double>(samples.size()) / rate, 0.5 / rate);
        EXPECT_NEAR(audio.rootMeanSquare(), 0.5 / std::numbers::sqrt2, 0.01);
        EXPECT_GE(audio.frames.size(), samples.size());
    }
}

TEST(AacFileWriter, putsTheIndexFirstForReadersOfAPipe) {
    const TemporaryFolder folder;
    const auto writer = makeWriter(folder / "take.m4a");
    ASSERT_TRUE(writer->write(tone(48000, 48000)));
    ASSERT_TRUE(writer->close());
    std::ifstream file(folder / "take.m4a", std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), {});
    EXPECT_LT(bytes.find("moov"), bytes.find("mdat"));
}

TEST(AacFileWriter, makesAPlayableFileOfATakeWithoutSound) {
    const TemporaryFolder folder;
    ASSERT_TRUE(makeWriter(folder / "take.m4a")->close());
    EXPECT_EQ(decodeAudioFile(folder / "take.m4a").rootMeanSquare(), 0);
}

// One such sample makes the encoder refuse a frame and the next.
TEST(AacFileWriter, takesSamplesThatAreNotFiniteForSilence) {
    const TemporaryFolder folder;
    std::vector<float> samples = tone(48000, 48000);
    samples[100] = std::numeric_limits<float>::quiet_NaN();
    samples[30000] = std::numeric_limits<float>::infinity();
    samples[47999] = -std::numeric_limits<float>::infinity();
    const auto writer = makeWriter(folder / "take.m4a");
    ASSERT_TRUE(writer->write(samples));
    ASSERT_TRUE(writer->close());
    const DecodedAudio audio = decodeAudioFile(folder / "take.m4a");
    EXPECT_NEAR(audio.duration, 1, 1e-4);
    EXPECT_NEAR(audio.rootMeanSquare(), 0.354, 0.01);
}

TEST(AacFileWriter, isReadableByItsOwnerOnlyAndFollowsNoLink) {
    const TemporaryFolder folder;
    std::ofstream(folder / "precious") << "precious";
    std::filesystem::create_symlink(folder / "precious", folder / "take.m4a");
    const auto writer = makeWriter(folder / "take.m4a");
    EXPECT_EQ(std::filesystem::file_size(folder / "precious"), 8u);
    struct stat status {};
    ASSERT_EQ(lstat((folder / "take.m4a").c_str(), &status), 0);
    EXPECT_TRUE(S_ISREG(status.st_mode));
    EXPECT_EQ(status.st_mode & 0777, 0600u);

    // A writer that was dropped unclosed does not reach into the file that took its path.
    auto abandoned = makeWriter(folder / "twice.m4a");
    ASSERT_TRUE(abandoned->write(tone(48000, 48000)));
    const auto second = makeWriter(folder / "twice.m4a");
    ASSERT_TRUE(second->write(tone(24000, 48000)));
    abandoned.reset();
    ASSERT_TRUE(second->close());
    EXPECT_NEAR(decodeAudioFile(folder / "twice.m4a").duration, 0.5, 1e-4);
}

TEST(AacFileWriter, refusesWhatItCannotWrite) {
    const TemporaryFolder folder;
    const auto missing = makeAacFileWriter(folder / "none/take.m4a", {});
    ASSERT_FALSE(missing);
    EXPECT_THAT(missing.error().description, HasSubstr("No such file"));
    EXPECT_FALSE(makeAacFileWriter(folder / "take.m4a", {.sampleRate = 47999}));
    EXPECT_FALSE(makeAacFileWriter(folder / "take.m4a", {.channels = 2}));
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

/// No file of this process grows beyond the limit: writing fails as on a full disk.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) {
        m_oldHandler = ::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_old);
        const rlimit limit{bytes, m_old.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &m_old);
        ::signal(SIGXFSZ, m_oldHandler);
    }

  private:
    rlimit m_old{};
    sighandler_t m_oldHandler = nullptr;
};

Outcome recordTenSeconds(const std::filesystem::path& path) {
    const auto writer = makeWriter(path);
    for (int i = 0; i < 10; ++i)
        (void)writer->write(tone(48000, 48000));  // close() says it again
    return writer->close();
}

TEST(AacFileWriter, removesTheFileAndSaysSoWhenTheDiskIsFull) {
    const TemporaryFolder folder;
    const std::filesystem::path path = folder / "take.m4a";
    ASSERT_TRUE(recordTenSeconds(path));
    const rlim_t size = std::filesystem::file_size(path);
    // Full amid the sound, and full when the index is moved in front of it at the end.
    for (const rlim_t limit : {size / 2, size - 10}) {
        Outcome closed = Success{};
        {
            const FileSizeLimit full(limit);
            closed = recordTenSeconds(path);
        }
        ASSERT_FALSE(closed) << limit;
        EXPECT_THAT(closed.error().description, HasSubstr("File too large"));
        EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
    }
    const FileSizeLimit full(1);
    EXPECT_FALSE(recordTenSeconds(path));
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

/// The encoder that this thread has started last; one before may still be on its way out.
pid_t encoder() {
    std::ifstream children("/proc/thread-self/children");
    pid_t newest = 0;
    for (pid_t process = 0; children >> process;)
        newest = process;
    return newest;
}

TEST(AacFileWriter, saysSoWhenTheEncoderDiesAndRemovesTheFile) {
    const TemporaryFolder folder;
    const auto writer = makeWriter(folder / "take.m4a");
    ASSERT_TRUE(writer->write(tone(48000, 48000)));
    ASSERT_GT(encoder(), 0);
    ASSERT_EQ(kill(encoder(), SIGKILL), 0);
    EXPECT_TRUE(waitUntil([&] { return !writer->write(tone(1024, 48000)); }));
    const Outcome closed = writer->close();
    ASSERT_FALSE(closed);
    EXPECT_THAT(closed.error().description, HasSubstr("the encoder has ended"));
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

// Both would hold the main thread, the first through the capture thread's lock.
TEST(AacFileWriter, waitsNeitherInTheTakeNorLongAtItsEndForAnEncoderThatHangs) {
    const TemporaryFolder folder;
    for (const int seconds : {5, 30}) {
        const auto writer = makeWriter(folder / "take.m4a");
        ASSERT_TRUE(writer->write(tone(1024, 48000)));
        ASSERT_EQ(kill(encoder(), SIGSTOP), 0);
        Outcome written = Success{};
        for (int second = 0; second < seconds && written; ++second)
            written = writer->write(tone(48000, 48000));
        const Outcome closed = writer->close();
        ASSERT_FALSE(closed);
        EXPECT_EQ(closed.error().description,
                  written ? "the encoder hangs" : "the encoder does not keep up");
        EXPECT_EQ(written.ok(), seconds == 5);
        EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
    }
}

TEST(AacFileWriter, completesTheFileWhenTheProgramIsKilled) {
    const TemporaryFolder folder;
    const pid_t program = fork();
    if (program == 0) {
        const auto writer = makeWriter(folder / "take.m4a");
        (void)writer->write(tone(48000, 48000));
        raise(SIGKILL);
    }
    waitpid(program, nullptr, 0);
    EXPECT_TRUE(waitUntil([&] {
        std::ifstream file(folder / "take.m4a", std::ios::binary);
        return std::string((std::istreambuf_iterator<char>(file)), {}).find("moov") !=
               std::string::npos;
    }));
    EXPECT_NEAR(decodeAudioFile(folder / "take.m4a").duration, 1, 1e-4);
}

}  // namespace
}  // namespace nulo
