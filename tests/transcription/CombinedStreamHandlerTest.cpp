#include "transcription/CombinedStreamHandler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "base/Text.h"
#include "fakes/FakeMainQueue.h"
#include "fakes/PrintedLines.h"
#include "fuzz/StreamSplitting.h"

namespace nulo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string event(const std::string& content) {
    return R"(data: {"choices":[{"delta":{"content":")" + content + "\"}}]}\n";
}

class CombinedStreamHandlerTest : public testing::Test {
  protected:
    CombinedStreamHandler::Completion completion() {
        return [this](const TextResult& result) {
            m_calls.push_back(result ? "text " + result.value()
                                     : "failure " + describe(result.error()));
        };
    }

    FakeMainQueue m_mainQueue;
    PrintedLines m_log;
    std::vector<std::string> m_calls;  // of the owner's callbacks, in order
    CombinedStreamHandler m_handler{
        m_mainQueue, m_log.print(),
        [this](long long time) { m_calls.push_back("time " + std::to_string(time)); },
        [this](const std::string& fragment) { m_calls.push_back("token " + fragment); },
        completion()};
};

// Catches callbacks made on the session's thread, merged, out of order, or after the end marker.
TEST_F(CombinedStreamHandlerTest, deliversEachCallInOrderByItsOwnHandOff) {
    m_handler.didReceiveResponse({200,
                                  {{"content-type", "text/event-stream"},
                                   {"x-transcription-ms", "+0850"},
                                   {"X-Upload-Ms", "12.5"}}});
    m_handler.didReceiveData(event(" Bon") + "data: {\"choices\":[{\"del");
    m_handler.didReceiveData("ta\":{\"content\":\"jour \"}}]}\n" + event("") + "data: [DONE]\n" +
                             event("late"));
    m_handler.didReceiveData(event("later"));
    m_handler.didComplete(Error{"connection lost"});  // after the end: changes nothing
    EXPECT_THAT(m_calls, IsEmpty());
    EXPECT_EQ(m_mainQueue.pendingCount(), 5u);
    m_mainQueue.runPending();

    EXPECT_THAT(m_calls,
                ElementsAre("time 850", "token  Bon", "token jour ", "token ", "text Bonjour"));
    EXPECT_THAT(
        m_log.lines(),
        ElementsAre("HTTP response: 200, Content-Type: text/event-stream",
                    "X-Transcription-Ms header: 850ms",
                    "X-Upload-Ms header (server-side multer receive): 12.5ms",
                    "First data chunk received: 72 bytes",
                    "SSE [DONE] received after 2 data chunks", "finishStream: 7 chars total"));
}

// Catches a lenient number parser (850.5 as 850, overflow, "+-5") and a missing callback called.
TEST_F(CombinedStreamHandlerTest, takesOnlyAWholeIntegerAsTranscriptionTime) {
    for (const char* bad : {"850.5", "", " 850", "850 ", "+", "+-5", "0x10", "9223372036854775808"})
        m_handler.didReceiveResponse({200, {{"X-Transcription-Ms", bad}, {"X-Upload-Ms", "1"}}});
    m_mainQueue.runPending();
    EXPECT_THAT(m_calls, IsEmpty());
    EXPECT_EQ(std::ranges::count(m_log.lines(), "No X-Transcription-Ms header found"), 8);
    EXPECT_EQ(m_log.lines().size(), 16u);
    CombinedStreamHandler withoutTime(m_mainQueue, m_log.print(), nullptr, {}, completion());
    withoutTime.didReceiveResponse({200, {{"X-Transcription-Ms", "-5"}}});
    m_mainQueue.runPending();
    EXPECT_EQ(m_log.lines().back(), "X-Transcription-Ms header: -5ms");
}

// Catches success taken for any 2xx, fragments out of an error page, undecodable error bodies, and
// those that write to the terminal or never end.
TEST_F(CombinedStreamHandlerTest, makesTheBodyOfAnotherStatusTheErrorMessage) {
    m_handler.didReceiveResponse({201, {}});
    m_handler.didReceiveData(event("no") + "\xC3");
    m_handler.didReceiveData("\xA9 ");
    m_handler.didComplete({});
    m_handler.didComplete({});

    CombinedStreamHandler undecodable(m_mainQueue, m_log.print(), nullptr, {}, completion());
    undecodable.didReceiveResponse({500, {}});
    undecodable.didReceiveData("\xFF");
    undecodable.didComplete({});

    CombinedStreamHandler endless(m_mainQueue, m_log.print(), nullptr, {}, completion());
    endless.didReceiveResponse({400, {}});
    int pieces = 0;
    while (endless.didReceiveData(std::string(1001, 'x') + "é"))
        ++pieces;
    EXPECT_EQ(pieces, 65);
    endless.didComplete({});

    m_mainQueue.runPending();
    const std::string shown = trimmed(event("no")) + "␊é ";
    EXPECT_THAT(m_calls, ElementsAre("failure API error 201: " + shown,
                                     "failure API error 500: Unknown error",
                                     testing::StartsWith("failure API error 400: xxx")));
    EXPECT_LE(m_calls.back().size(), 64u * 1024 + 100);
    EXPECT_THAT(m_log.lines(),
                testing::IsSupersetOf(
                    {"HTTP error 201: " + shown, std::string("HTTP error 500: Unknown error")}));
}

// Catches a chunk that was dropped counted all the same, one that takes its neighbours along, and
// text refused because it came before the head.
TEST_F(CombinedStreamHandlerTest, dropsAChunkThatIsNotUtf8AndNothingElse) {
    m_handler.didReceiveData(event("\xE2\x82"));
    m_handler.didReceiveData(event("😀").substr(0, 39));
    m_handler.didReceiveData("\xAC");
    m_handler.didReceiveData(event("😀").substr(39));
    m_handler.didComplete({});
    m_mainQueue.runPending();
    EXPECT_THAT(m_calls, ElementsAre("token 😀", "text 😀"));
    EXPECT_THAT(m_log.lines(),
                ElementsAre("First data chunk received: 39 bytes", "URLSession completed normally",
                            "finishStream: 1 chars total"));
}

// Catches a buffer that is searched again, or moved up, with every piece: both cases would then
// take minutes and run into the test's time-out. Catches memory that a stream fills without end.
TEST_F(CombinedStreamHandlerTest, takesLongLinesInLinearTimeUpToABound) {
    constexpr std::size_t size = 1'000'000;
    m_handler.didReceiveData(std::string(5 * size, '\n'));
    const std::string line = event(std::string(size, 'x'));
    for (int times = 0; times < 9; ++times)
        for (std::size_t i = 0; i < line.size(); i += 3)
            m_handler.didReceiveData(std::string_view(line).substr(i, 3));
    while (m_handler.didReceiveData(line)) {
    }
    CombinedStreamHandler endless(m_mainQueue, m_log.print(), nullptr, {}, completion());
    while (endless.didReceiveData("data: the line goes on, ")) {
    }
    m_mainQueue.runPending();
    ASSERT_EQ(m_calls.size(), 11u);
    EXPECT_EQ(m_calls[0].size(), size + std::string("token ").size());
    EXPECT_EQ(m_calls[9],
              "failure The speech service sent a text of more than 8 MB; the rest was not read");
    EXPECT_EQ(m_calls[10],
              "failure The speech service sent a line of more than 1 MB; the rest was not read");
}

// Catches callbacks that are destroyed on the session's thread when main was quicker.
TEST_F(CombinedStreamHandlerTest, letsItsCallbacksDieOnTheMainThread) {
    const auto captured = std::make_shared<int>();
    CombinedStreamHandler handler(
        m_mainQueue, m_log.print(), nullptr, [captured](const std::string&) {},
        [captured](const TextResult&) {});
    handler.didReceiveData(event("Bon"));
    handler.didComplete({});
    EXPECT_GT(captured.use_count(), 1);
    m_mainQueue.runPending();
    EXPECT_EQ(captured.use_count(), 1);
}

}  // namespace
}  // namespace nulo
