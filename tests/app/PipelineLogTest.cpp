#include "app/PipelineLog.h"

#include <fstream>
#include <sstream>

#include "fakes/PartTest.h"

namespace nulo {
namespace {

TEST(PipelineLog, writesWholeSessionsAndEchoesTimedLines) {
    setenv("TZ", "UTC", 1);
    const TemporaryFolder folder;
    FakeClock clock;
    clock.setWallTime(Clock::WallTime(14h + 2min + 11s + 532ms));
    PrintedLines printed;
    const fs::path logDir = folder / "Library/Logs/nulo";
    PipelineLog log(logDir, clock, printed.print());

    log.log("outside");
    std::ofstream(folder / "take.m4a") << std::string(4812, 'x');
    log.startSession(folder / "take.m4a");
    clock.advance(572ms);
    log.log("processRecording() started");
    clock.advance(100000s);
    log.log("late");
    log.endSession();
    log.startSession(folder / "gone.m4a");

    std::ostringstream text;
    text << std::ifstream(logDir / "pipeline.log").rdbuf();
    const std::string rule(70, '=');
    EXPECT_EQ(text.str(),
              "[14:02:11.532] +    0ms  outside\n"
              "\n" +
                  rule +
                  "\nSESSION #1 — 14:02:11.532\n"
                  "Audio: take.m4a (4812 bytes, 4KB)\n"
                  "[14:02:12.104] +  572ms  processRecording() started\n"
                  "[17:48:52.104] +100000572ms  late\n"
                  "TOTAL: 100000572ms\n" +
                  rule +
                  "\n"
                  "\n" +
                  rule +
                  "\nSESSION #2 — 17:48:52.104\n"
                  "Audio: gone.m4a (0 bytes, 0KB)\n");
    EXPECT_THAT(printed.lines(),
                ElementsAre("[nulo-log] [14:02:11.532] +    0ms  outside",
                            "[nulo-log] [14:02:12.104] +  572ms  processRecording() started",
                            "[nulo-log] [17:48:52.104] +100000572ms  late"));
    EXPECT_EQ(fs::status(logDir / "pipeline.log").permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
}

TEST(PipelineLog, echoesWhenTheFileCannotBeWritten) {
    FakeClock clock;
    PrintedLines printed;
    PipelineLog log("/dev/null/nulo", clock, printed.print());
    log.log("still there");
    EXPECT_EQ(printed.lines().size(), 1u);
}

}  // namespace
}  // namespace nulo
