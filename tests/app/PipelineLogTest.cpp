#include "app/PipelineLog.h"

#include <fstream>

#include "base/FileIO.h"
#include "fakes/PartTest.h"

namespace nulo {
namespace {

using PipelineLogTest = PartTest;

TEST_F(PipelineLogTest, writesWholeSessionsAndEchoesTimedLines) {
    setenv("TZ", "UTC", 1);
    m_clock.setWallTime(Clock::WallTime(14h + 2min + 11s + 532ms));
    const fs::path file = m_folder / "Library/Logs/nulo/pipeline.log";
    PipelineLog log(file.parent_path(), m_clock, m_printed.print());
    log.log("outside");
    std::ofstream(m_folder / "take.m4a") << std::string(4812, 'x');
    log.startSession(m_folder / "take.m4a");
    m_clock.advance(572ms);
    log.log("processRecording() started");
    m_clock.advance(100000s);
    log.log("late");
    log.endSession();
    log.startSession(m_folder / "gone.m4a");

    const std::string rule = std::string(70, '=') + "\n";
    const std::string lines[] = {"[14:02:11.532] +    0ms  outside",
                                 "[14:02:12.104] +  572ms  processRecording() started",
                                 "[17:48:52.104] +100000572ms  late"};
    EXPECT_EQ(readFile(file, 10'000),
              lines[0] + "\n\n" + rule +
                  "SESSION #1 — 14:02:11.532\nAudio: take.m4a (4812 bytes, 4KB)\n" + lines[1] +
                  "\n" + lines[2] + "\nTOTAL: 100000572ms\n" + rule + "\n" + rule +
                  "SESSION #2 — 17:48:52.104\nAudio: gone.m4a (0 bytes, 0KB)\n");
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600));
    PipelineLog("/dev/null/nulo", m_clock, m_printed.print()).log("no file");
    const std::string echo = "[nulo-log] ";
    EXPECT_THAT(m_printed.lines(), ElementsAre(echo + lines[0], echo + lines[1], echo + lines[2],
                                               EndsWith("no file")));
}

}  // namespace
}  // namespace nulo
