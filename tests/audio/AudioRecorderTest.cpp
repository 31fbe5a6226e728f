#include "audio/AudioRecorder.h"

#include <gmock/gmock.h>

#include "fakes/FakeAudioFileWriter.h"
#include "fakes/FakeMainQueue.h"
#include "fakes/PrintedLines.h"
#include "rig/process/FakeClock.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/sound/FakeMicrophone.h"

namespace nulo {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class AudioRecorderTest : public testing::Test {
  protected:
    AudioRecorderTest() {
        clock.setWallTime(Clock::WallTime(std::chrono::seconds(1741943107)));
        start();
    }

    void start() {
        recorder.emplace(microphone, files.maker(), queue, clock, printed.print(), takes);
        recorder->onFailure = [&](const Error& reason) { reported.push_back(reason.description); };
    }
    /// The line that beginning a take printed.
    std::string begin() {
        recorder->startRecording();
        queue.runPending();
        return lastLine();
    }
    std::optional<std::filesystem::path> stopAfter(int duration) {
        clock.advance(milliseconds(duration));
        return recorder->stopRecording();
    }
    std::string lastLine() { return printed.lines().empty() ? "" : printed.lines().back(); }

    TemporaryFolder folder;
    const std::filesystem::path takes = folder / "nulo";
    FakeClock clock;
    FakeMainQueue queue;
    FakeMicrophone microphone;
    FakeAudioFiles files;
    PrintedLines printed;
    std::vector<std::string> reported;
    std::optional<AudioRecorder> recorder;
};

TEST_F(AudioRecorderTest, keepsATakeFromOneAndAHalfSecondsOn) {
    EXPECT_EQ(recorder->stopRecording(), std::nullopt);
    const std::string name = "recording_" + fileTimestamp(clock.wallTime()) + ".m4a";
    EXPECT_EQ(begin(), "Recording started (AAC): " + name);
    begin();  // twice: ignored
    microphone.framesAtStop = {0.25F};
    microphone.capture({0.5F, 0.5F});
    EXPECT_EQ(stopAfter(1500), takes / name);
    EXPECT_EQ(lastLine(), "Recording saved: " + name + " (2 KB)");
    EXPECT_THAT(files.frames, ElementsAre(0.5F, 0.5F, 0.25F));  // the last word is in the file
    EXPECT_EQ(files.settings[0].bitRate, 64000);
    EXPECT_EQ(microphone.enginesMade, 1);

    std::filesystem::remove(takes / name);
    begin();
    EXPECT_EQ(stopAfter(1490), std::nullopt);
    EXPECT_EQ(lastLine(), "Recording too short (1.5s) — discarded");
    EXPECT_TRUE(std::filesystem::is_empty(takes));
    EXPECT_THAT(reported, IsEmpty());
}

// A microphone that stays open after the chord was let go.
TEST_F(AudioRecorderTest, aReleaseBeforeTheBeginCallsItOff) {
    recorder->startRecording();
    EXPECT_EQ(recorder->stopRecording(), std::nullopt);
    queue.runPending();
    EXPECT_EQ(microphone.enginesMade, 0);
    begin();
    EXPECT_TRUE(stopAfter(2000));
}

TEST_F(AudioRecorderTest, asksForPermissionOnlyWhenItIsOpen) {
    microphone.permission = MicrophonePermission::denied;
    EXPECT_EQ(begin(), "Microphone permission denied");
    microphone.permission = MicrophonePermission::notDetermined;
    begin();
    microphone.answerAccess(false);
    queue.runPending();
    EXPECT_THAT(reported, ElementsAre(lastLine(), "Microphone permission denied"));
    begin();
    microphone.answerAccess(true);
    queue.runPending();
    EXPECT_TRUE(recorder->isRecording().get());
    recorder->stopRecording();

    recorder->startRecording();  // the answer comes when nobody is left to record
    recorder.reset();
    microphone.answerAccess(true);
    queue.runPending();
    microphone.permission = MicrophonePermission::authorized;
    start();
    begin();
    microphone.capture({0.5F});  // its level is still on the way
    recorder.reset();
    EXPECT_FALSE(microphone.isRunning());
    queue.runPending();
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
    EXPECT_FALSE(std::filesystem::is_empty(takes));  // no file is removed
    microphone.startOutcome = Success{};
    std::filesystem::rename(takes, folder / "elsewhere");
    std::filesystem::create_symlink(folder / "elsewhere", takes);
    EXPECT_THAT(begin(), HasSubstr("is a symbolic link"));
    EXPECT_EQ(recorder->stopRecording(), std::nullopt);
    EXPECT_EQ(reported.size(), 5u);
    std::filesystem::remove(takes);  // as a clean-up of the temporary folder does
    begin();
    EXPECT_TRUE(recorder->isRecording().get());
    EXPECT_EQ(std::filesystem::status(takes).permissions(), std::filesystem::perms(0700));
}

// A dictation into a file that is lost already.
TEST_F(AudioRecorderTest, endsATakeThatCannotBeWrittenAtOnceAndReportsItOnce) {
    begin();
    files.writeFailure = files.closeFailure = Error{"the encoder has ended"};
    microphone.capture({0.5F});
    microphone.capture({0.5F});
    queue.runPending();
    EXPECT_FALSE(microphone.isRunning());
    EXPECT_EQ(reported.size(), 1u);
    EXPECT_EQ(stopAfter(2000), std::nullopt);
    EXPECT_EQ(lastLine(), "Failed to save recording: the encoder has ended");
    EXPECT_EQ(reported.size(), 1u);

    begin();
    microphone.capture({0.5F});
    stopAfter(2000);  // reports what nobody has heard of yet
    files.writeFailure = files.closeFailure = std::nullopt;
    begin();
    queue.runPending();  // the take before has nothing to do with this one
    EXPECT_TRUE(stopAfter(2000));
    EXPECT_EQ(reported.size(), 2u);
}

TEST_F(AudioRecorderTest, publishesTheNewestEightyLevels) {
    begin();
    microphone.capture({0.01F});
    EXPECT_THAT(recorder->audioLevels().get(), IsEmpty());  // not before main gets to it
    for (int i = 0; i < 80; ++i)
        microphone.capture({1});
    microphone.capture({0});
    queue.runPending();
    EXPECT_EQ(recorder->audioLevels().get().size(), 80u);
    EXPECT_EQ(recorder->audioLevels().get().front(), 1);
    EXPECT_EQ(recorder->audioLevels().get().back(), 0);
    stopAfter(1);
    begin();
    EXPECT_THAT(recorder->audioLevels().get(), IsEmpty());
}

}  // namespace
}  // namespace nulo
