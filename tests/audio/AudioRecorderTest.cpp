#include "audio/AudioRecorder.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

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

constexpr const char* denied = "Microphone permission denied";

class AudioRecorderTest : public testing::Test {
  protected:
    AudioRecorderTest() { clock.setWallTime(Clock::WallTime(std::chrono::seconds(1741943107))); }

    void begin() {
        recorder->startRecording();
        queue.runPending();
    }
    std::optional<std::filesystem::path> stopAfter(milliseconds duration) {
        clock.advance(duration);
        return recorder->stopRecording();
    }
    std::string lastLine() { return printed.lines().empty() ? "" : printed.lines().back(); }
    std::string name() { return "recording_" + fileTimestamp(clock.wallTime()) + ".m4a"; }

    TemporaryFolder folder;
    FakeClock clock;
    FakeMainQueue queue;
    FakeMicrophone microphone;
    FakeAudioFiles files;
    PrintedLines printed;
    std::optional<AudioRecorder> recorder{std::in_place, microphone,      files.maker(),  queue,
                                          clock,         printed.print(), folder / "nulo"};
};

TEST_F(AudioRecorderTest, keepsATakeFromOneAndAHalfSecondsOn) {
    const std::filesystem::path file = folder / "nulo" / name();
    std::vector<bool> states;
    const auto subscription =
        recorder->isRecording().subscribe([&](bool state) { states.push_back(state); });
    begin();
    EXPECT_EQ(lastLine(), "Recording started (AAC): " + file.filename().string());
    microphone.framesAtStop = {0.25F};
    microphone.capture({0.5F, 0.5F});
    EXPECT_EQ(stopAfter(milliseconds(1500)), file);
    EXPECT_EQ(lastLine(), "Recording saved: " + file.filename().string() + " (2 KB)");
    EXPECT_THAT(states, ElementsAre(true, false));
    EXPECT_THAT(files.frames, ElementsAre(0.5F, 0.5F, 0.25F));  // the last word is in the file
    EXPECT_EQ(files.closedCount, 1);
    EXPECT_EQ(files.settings[0].sampleRate, 48000);
    EXPECT_EQ(files.settings[0].channels, 1);
    EXPECT_EQ(files.settings[0].bitRate, 64000);
}

TEST_F(AudioRecorderTest, discardsAShorterTake) {
    begin();
    const std::filesystem::path file = folder / "nulo" / name();
    EXPECT_TRUE(std::filesystem::exists(file));
    EXPECT_EQ(stopAfter(milliseconds(1490)), std::nullopt);
    EXPECT_EQ(lastLine(), "Recording too short (1.5s) — discarded");
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(AudioRecorderTest, roundsKilobytesDown) {
    files.bytesPerFile = 1023;
    begin();
    stopAfter(milliseconds(2000));
    EXPECT_THAT(lastLine(), HasSubstr(".m4a (0 KB)"));
}

TEST_F(AudioRecorderTest, ignoresCallsThatDoNotFitItsState) {
    EXPECT_EQ(recorder->stopRecording(), std::nullopt);
    EXPECT_THAT(printed.lines(), IsEmpty());
    recorder->startRecording();
    begin();  // pressed twice before the begin ran: a second engine would take the first one's
              // place
    begin();
    EXPECT_EQ(microphone.enginesMade, 1);
    EXPECT_EQ(printed.lines().size(), 1u);
}

// A microphone that stays open after the chord was let go.
TEST_F(AudioRecorderTest, aReleaseBeforeTheBeginCallsItOff) {
    recorder->startRecording();
    EXPECT_EQ(recorder->stopRecording(), std::nullopt);
    queue.runPending();
    EXPECT_FALSE(recorder->isRecording().get());
    EXPECT_EQ(microphone.enginesMade, 0);
    begin();
    EXPECT_TRUE(stopAfter(milliseconds(2000)));
}

TEST_F(AudioRecorderTest, asksForPermissionOnlyWhenItIsOpen) {
    microphone.permission = MicrophonePermission::denied;
    begin();
    microphone.permission = MicrophonePermission::restricted;
    begin();
    EXPECT_THAT(printed.lines(), ElementsAre(denied, denied));

    microphone.permission = MicrophonePermission::notDetermined;
    begin();
    microphone.answerAccess(false);
    queue.runPending();
    EXPECT_EQ(printed.lines().size(), 3u);
    EXPECT_EQ(lastLine(), denied);
    begin();
    microphone.answerAccess(true);
    queue.runPending();
    EXPECT_TRUE(recorder->isRecording().get());
}

TEST_F(AudioRecorderTest, isNotTouchedByWhatComesAfterItsEnd) {
    recorder->startRecording();
    queue.runPending();
    microphone.capture({0.5F});  // its level is still on the way
    recorder.reset();
    EXPECT_FALSE(microphone.isRunning());
    queue.runPending();

    microphone.permission = MicrophonePermission::notDetermined;
    recorder.emplace(microphone, files.maker(), queue, clock, printed.print(), folder / "nulo");
    recorder->startRecording();
    recorder.reset();
    const auto before = printed.lines();
    microphone.answerAccess(true);
    queue.runPending();
    EXPECT_EQ(printed.lines(), before);
}

TEST_F(AudioRecorderTest, aFailedStartLeavesItIdleAndAbleToStartAgain) {
    recorder->audioLevels().set({1});
    microphone.sampleRate = Error{"no microphone is connected"};
    begin();
    EXPECT_EQ(lastLine(), "Failed to start recording: no microphone is connected");
    EXPECT_THAT(recorder->audioLevels().get(), IsEmpty());

    for (const double rate : {0.0, std::numeric_limits<double>::quiet_NaN()}) {
        microphone.sampleRate = rate;
        begin();
        EXPECT_EQ(lastLine(), "Failed to create tap format");
    }
    microphone.sampleRate = 44100.0;

    files.makeFailure = Error{"no room"};
    begin();
    EXPECT_EQ(lastLine(), "Failed to start recording: no room");
    files.makeFailure.reset();

    microphone.startOutcome = Error{"the device is busy"};
    begin();
    EXPECT_EQ(lastLine(), "Failed to start recording: the device is busy");
    EXPECT_TRUE(std::filesystem::exists(folder / "nulo" / name()));  // no file is removed
    EXPECT_FALSE(recorder->isRecording().get());
    EXPECT_EQ(recorder->stopRecording(), std::nullopt);
    microphone.startOutcome = Success{};

    begin();
    EXPECT_TRUE(recorder->isRecording().get());
}

TEST_F(AudioRecorderTest, keepsTheTakeOfAMicrophoneThatWasUnplugged) {
    begin();
    clock.advance(milliseconds(1000));
    microphone.interrupt({"the microphone was unplugged"});
    EXPECT_EQ(lastLine(), "Recording interrupted: the microphone was unplugged");
    EXPECT_EQ(files.closedCount, 1);
    EXPECT_TRUE(recorder->isRecording().get());  // the chord is still held
    EXPECT_TRUE(stopAfter(milliseconds(500)));
    EXPECT_EQ(files.closedCount, 1);
}

TEST_F(AudioRecorderTest, reportsATakeThatCouldNotBeSaved) {
    files.closeFailure = Error{"no space left on device"};
    begin();
    EXPECT_EQ(stopAfter(milliseconds(2000)), std::nullopt);
    EXPECT_EQ(lastLine(), "Failed to save recording: no space left on device");
    files.closeFailure.reset();
    begin();
    EXPECT_TRUE(stopAfter(milliseconds(2000)));  // a failure belongs to its own take
}

// A dictation into a file that is lost already.
TEST_F(AudioRecorderTest, endsATakeThatCannotBeWrittenAtOnceAndReportsItOnce) {
    std::vector<std::string> reported;
    recorder->onFailure = [&](const Error& reason) { reported.push_back(reason.description); };
    begin();
    files.writeFailure = files.closeFailure = Error{"the encoder has ended"};
    microphone.capture({0.5F});
    microphone.capture({0.5F});
    queue.runPending();
    EXPECT_FALSE(microphone.isRunning());
    EXPECT_THAT(reported, ElementsAre("the encoder has ended"));
    EXPECT_EQ(stopAfter(milliseconds(2000)), std::nullopt);
    EXPECT_EQ(lastLine(), "Failed to save recording: the encoder has ended");
    EXPECT_EQ(reported.size(), 1u);

    begin();
    microphone.capture({0.5F});
    stopAfter(milliseconds(2000));  // reports what nobody has heard of yet
    files.writeFailure.reset();
    files.closeFailure.reset();
    begin();
    queue.runPending();  // the take before has nothing to do with this one
    EXPECT_TRUE(stopAfter(milliseconds(2000)));
    EXPECT_EQ(reported.size(), 2u);
}

TEST_F(AudioRecorderTest, publishesTheNewestEightyLevels) {
    begin();
    microphone.capture({0.01F});
    EXPECT_THAT(recorder->audioLevels().get(), IsEmpty());  // not before main gets to it
    for (int i = 0; i < 79; ++i)
        microphone.capture({1});
    microphone.capture({});  // an empty buffer is no level
    queue.runPending();
    EXPECT_EQ(recorder->audioLevels().get().size(), 80u);
    EXPECT_NEAR(recorder->audioLevels().get().front(), 0.5F, 1e-6F);
    microphone.capture({0});
    queue.runPending();
    EXPECT_EQ(recorder->audioLevels().get().size(), 80u);
    EXPECT_EQ(recorder->audioLevels().get().front(), 1);
    EXPECT_EQ(recorder->audioLevels().get().back(), 0);
    stopAfter(milliseconds(1));
    EXPECT_EQ(recorder->audioLevels().get().size(), 80u);
    begin();
    EXPECT_THAT(recorder->audioLevels().get(), IsEmpty());
}

TEST_F(AudioRecorderTest, recordsOnlyIntoAPrivateFolder) {
    std::filesystem::remove_all(folder / "nulo");
    std::filesystem::create_directory(folder / "elsewhere");
    std::filesystem::create_symlink(folder / "elsewhere", folder / "nulo");
    begin();
    EXPECT_THAT(lastLine(), testing::StartsWith("Failed to start recording: the folder "));
    EXPECT_THAT(lastLine(), HasSubstr("is a symbolic link"));
    EXPECT_TRUE(std::filesystem::is_empty(folder / "elsewhere"));

    std::filesystem::remove(folder / "nulo");  // as a clean-up of the temporary folder does
    begin();
    EXPECT_TRUE(recorder->isRecording().get());
    struct stat status {};
    ASSERT_EQ(stat((folder / "nulo").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);
}

}  // namespace
}  // namespace nulo
