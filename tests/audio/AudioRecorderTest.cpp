#include "audio/AudioRecorder.h"

#include <clocale>
#include <cmath>
#include <numeric>

#include "audio/FrameBlocks.h"
#include "audio/Level.h"
#include "fakes/FakeAudioFileWriter.h"
#include "fakes/PartTest.h"
#include "rig/process/ChildProcess.h"
#include "rig/sound/FakeMicrophone.h"

namespace nulo {
namespace {

/// Numbers are written as in many of the languages that the toolkit may make this process's.
void writeNumbersWithAComma(const TemporaryFolder& m_folder) {
    std::ofstream(m_folder / "numbers") << "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \"\"\n"
                                           "grouping -1\nEND LC_NUMERIC\n";
    ChildProcess({"localedef", "-c", "-i", m_folder / "numbers", m_folder / "comma"})
        .wait(std::chrono::seconds(20));
    setenv("LOCPATH", m_folder.path().c_str(), 1);
    ASSERT_TRUE(setlocale(LC_NUMERIC, "comma"));
}

class AudioRecorderTest : public PartTest {
  protected:
    AudioRecorderTest() { start(); }

    void start() {
        recorder.emplace(microphone, files.maker(), m_queue, m_clock, m_printed.print(), takes);
        recorder->onFailure = [&](const Error& reason) { reported.push_back(reason.description); };
    }
    /// The line that beginning a take m_printed.
    std::string begin() {
        recorder->startRecording();
        m_queue.runPending();
        return lastLine();
    }
    std::optional<fs::path> stopAfter(int duration) {
        m_clock.advance(std::chrono::milliseconds(duration));
        return recorder->stopRecording();
    }
    std::string lastLine() { return m_printed.lines().empty() ? "" : m_printed.lines().back(); }

    const fs::path takes = m_folder / "nulo";
    FakeMicrophone microphone;
    FakeAudioFiles files;
    std::vector<std::string> reported;
    std::optional<AudioRecorder> recorder;
};

// The last word, or a take, that is lost; one that is kept though it is too short; a microphone
// that stays open after the chord was let go.
TEST_F(AudioRecorderTest, keepsATakeFromOneAndAHalfSecondsOn) {
    recorder->startRecording();
    EXPECT_EQ(recorder->stopRecording(), std::nullopt);
    m_queue.runPending();
    EXPECT_EQ(microphone.enginesMade, 0);
    const std::string name = "recording_" + fileTimestamp(m_clock.wallTime()) + ".m4a";
    EXPECT_EQ(begin(), "Recording started (AAC): " + name);
    begin();  // twice: ignored
    microphone.framesAtStop = {0.25F};
    microphone.capture({0.5F, 0.5F});
    EXPECT_EQ(stopAfter(1500), takes / name);
    EXPECT_EQ(lastLine(), "Recording saved: " + name + " (2 KB)");
    EXPECT_THAT(files.frames, ElementsAre(0.5F, 0.5F, 0.25F));
    EXPECT_EQ(files.settings[0].bitRate, 64000);
    EXPECT_EQ(microphone.enginesMade, 1);
    fs::remove(takes / name);
    begin();
    writeNumbersWithAComma(m_folder);
    EXPECT_EQ(stopAfter(1490), std::nullopt);
    setlocale(LC_NUMERIC, "C");
    EXPECT_EQ(lastLine(), "Recording too short (1.5s) — discarded");
    EXPECT_TRUE(fs::is_empty(takes));
    EXPECT_THAT(reported, IsEmpty());
}

TEST_F(AudioRecorderTest, asksForPermissionOnlyWhenItIsOpen) {
    microphone.permission = MicrophonePermission::denied;
    EXPECT_EQ(begin(), "Microphone permission denied");
    microphone.permission = MicrophonePermission::notDetermined;
    for (const bool granted : {false, true}) {
        begin();
        microphone.answerAccess(granted);
        m_queue.runPending();
        EXPECT_EQ(recorder->isRecording().get(), granted);
    }
    EXPECT_THAT(reported, ElementsAre(m_printed.lines()[0], m_printed.lines()[0]));
    recorder->stopRecording();
    recorder->startRecording();  // the answer comes when nobody is left to record
    recorder.reset();
    microphone.answerAccess(true);
    m_queue.runPending();
    microphone.permission = MicrophonePermission::authorized;
    start();
    begin();
    microphone.capture({0.5F});  // its level is still on the way
    recorder.reset();
    EXPECT_FALSE(microphone.isRunning());
    m_queue.runPending();
}

TEST_F(AudioRecorderTest, aFailedStartLeavesItIdleAndAbleToStartAgain) {
    microphone.sampleRate = Error{"no microphone"};
    EXPECT_EQ(begin(), "Failed to start recording: no microphone");
    microphone.sampleRate = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(begin(), "Failed to create tap format");
    microphone.sampleRate = 44100.0;
    files.makeFailure = Error{"no room"};
    EXPECT_EQ(begin(), "Failed to start recording: no room");
    files.makeFailure.reset();
    microphone.startOutcome = Error{"busy"};
    EXPECT_EQ(begin(), "Failed to start recording: busy");
    microphone.startOutcome = Success{};
    fs::rename(takes, m_folder / "elsewhere");
    fs::create_symlink(m_folder / "elsewhere", takes);
    EXPECT_THAT(begin(), HasSubstr("is a symbolic link"));
    EXPECT_EQ(recorder->stopRecording(), std::nullopt);
    EXPECT_THAT(reported, SizeIs(5));
    fs::remove(takes);  // as a clean-up of the temporary m_folder does
    begin();
    EXPECT_TRUE(recorder->isRecording().get());
    EXPECT_EQ(fs::status(takes).permissions(), fs::perms(0700));
}

// A dictation into a file that is lost already.
TEST_F(AudioRecorderTest, endsATakeThatCannotBeWrittenAtOnceAndReportsItOnce) {
    begin();
    files.writeFailure = files.closeFailure = Error{"the encoder has ended"};
    microphone.capture({0.5F});
    microphone.capture({0.5F});
    m_queue.runPending();
    EXPECT_FALSE(microphone.isRunning());
    EXPECT_THAT(reported, SizeIs(1));
    EXPECT_EQ(stopAfter(2000), std::nullopt);
    EXPECT_EQ(lastLine(), "Failed to save recording: the encoder has ended");
    EXPECT_THAT(reported, SizeIs(1));
    begin();
    microphone.capture({0.5F});
    stopAfter(2000);  // reports what nobody has heard of yet
    files.writeFailure = files.closeFailure = std::nullopt;
    begin();  // the take before has nothing to do with this one
    EXPECT_TRUE(stopAfter(2000));
    EXPECT_THAT(reported, SizeIs(2));
}

TEST_F(AudioRecorderTest, publishesTheNewestEightyLevels) {
    begin();
    for (int i = 0; i <= 81; ++i)
        microphone.capture({i < 81 ? 1.0F : 0.0F});
    EXPECT_THAT(recorder->audioLevels().get(), IsEmpty());  // not before main gets to it
    m_queue.runPending();
    EXPECT_THAT(recorder->audioLevels().get(), AllOf(SizeIs(80), Contains(0).Times(1)));
    stopAfter(1);
    begin();
    EXPECT_THAT(recorder->audioLevels().get(), IsEmpty());
}

// A level that is no number, or leaves out what a buffer's length does not divide.
TEST(Level, isLinearInDecibelsOverTheWholeBuffer) {
    EXPECT_EQ(normalizedLevel(0.0005F), 0);
    EXPECT_NEAR(normalizedLevel(0.01F), 0.5F, 1e-6F);
    EXPECT_EQ(normalizedLevel(std::nanf("")), 0);
    for (const std::size_t length : {1U, 7U, 8U, 83U, 1024U}) {
        std::vector<float> frames(length, 0.0F);
        frames.back() = std::sqrt(static_cast<float>(length));
        EXPECT_NEAR(rootMeanSquare(frames), 1, 1e-6F) << length;
    }
}

// Sound servers hand over 8 to 15,600 frames: levels of stretches of any length, or lost frames.
TEST(Level, isTakenOfBlocksOfOneLength) {
    std::vector<float> sound(20000);
    std::iota(sound.begin(), sound.end(), 0.0F);
    std::vector<float> heard;
    std::vector<std::size_t> lengths;
    FrameBlocks blocks([&](std::span<const float> block) {
        heard.insert(heard.end(), block.begin(), block.end());
        lengths.push_back(block.size());
    });
    std::span<const float> rest(sound);
    for (const std::size_t length : {8U, 1015U, 1U, 1024U, 2049U, 15600U, 303U}) {
        blocks.add(rest.first(length));
        rest = rest.subspan(length);
    }
    EXPECT_EQ(lengths, std::vector<std::size_t>(19, 1024));
    blocks.flush();
    EXPECT_EQ(heard, sound);
}

}  // namespace
}  // namespace nulo
