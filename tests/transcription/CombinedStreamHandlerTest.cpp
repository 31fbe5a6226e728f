#include "transcription/CombinedStreamHandler.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "Told.h"
#include "base/FileIO.h"
#include "base/Text.h"
#include "fakes/FakeMainQueue.h"
#include "transcription/StreamingSessionRouter.h"

namespace nulo {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

// What a server says must not drive the terminal by way of the log.
const Print visibly = [](std::string_view line) { EXPECT_EQ(visible(line), line); };

std::string event(const std::string& content) {
    return R"(data: {"choices":[{"delta":{"content":")" + content + "\"}}]}\n";
}

class CombinedStreamHandlerTest : public testing::Test {
  protected:
    CombinedStreamHandler handler() {
        return {m_mainQueue, visibly, nullptr, m_told.token(), m_told.completion()};
    }
    const std::vector<std::string>& told() {
        m_mainQueue.runPending();
        return m_told.calls;
    }

    FakeMainQueue m_mainQueue;
    Told m_told;
    CombinedStreamHandler m_handler{m_mainQueue, visibly, m_told.time(), m_told.token(),
                                    m_told.completion()};
};

// Catches callbacks made on the session's thread, merged, out of order, or after the end marker.
TEST_F(CombinedStreamHandlerTest, deliversEachCallInOrderByItsOwnHandOff) {
    m_handler.didReceiveResponse({200, {{"x-transcription-ms", "+0850"}}});
    m_handler.didReceiveData(event(" Bon") + "data: {\"choices\":[{\"del");
    m_handler.didReceiveData("ta\":{\"content\":\"jour \"}}]}\n" + event("") + "data: [DONE]\n" +
                             event("late"));
    m_handler.didReceiveData(event("later"));
    m_handler.didComplete(Error{"connection lost"});  // after the end: changes nothing
    EXPECT_TRUE(m_told.calls.empty());
    EXPECT_EQ(m_mainQueue.pendingCount(), 5u);
    EXPECT_THAT(told(),
                ElementsAre("time 850", "token  Bon", "token jour ", "token ", "text Bonjour"));
}

// Catches a lenient number parser (850.5 as 850, overflow, "+-5") and a missing callback called.
TEST_F(CombinedStreamHandlerTest, takesOnlyAWholeIntegerAsTranscriptionTime) {
    for (const char* bad : {"850.5", "", " 850", "850 ", "+", "+-5", "0x10", "9223372036854775808"})
        m_handler.didReceiveResponse({200, {{"X-Transcription-Ms", bad}}});
    handler().didReceiveResponse({200, {{"X-Transcription-Ms", "850"}}});
    m_handler.didReceiveResponse({200, {{"X-Transcription-Ms", "-5"}}});
    EXPECT_THAT(told(), ElementsAre("time -5"));
}

// Catches success taken for any 2xx, fragments out of an error page, undecodable error bodies, and
// those that write to the terminal or never end.
TEST_F(CombinedStreamHandlerTest, makesTheBodyOfAnotherStatusTheErrorMessage) {
    const std::pair<int, std::vector<std::string>> answers[] = {
        {201, {event("no") + "\xC3", "\xA9 "}},
        {500, {"\xFF"}},
        {400, std::vector(99, std::string(1001, 'x') + "é")},
    };
    for (const auto& [status, pieces] : answers) {
        auto one = handler();
        one.didReceiveResponse({status, {}});
        const auto refused = std::ranges::find_if(
            pieces, [&](const std::string& piece) { return !one.didReceiveData(piece); });
        EXPECT_EQ(refused - pieces.begin(), std::min<std::ptrdiff_t>(std::ssize(pieces), 65));
        one.didComplete({});
        one.didComplete({});
    }
    EXPECT_THAT(told(), ElementsAre("failure API error 201: " + visible(event("no") + "é "),
                                    "failure API error 500: Unknown error",
                                    StartsWith("failure API error 400: xxx")));
    EXPECT_LE(told().back().size(), 64u * 1024 + 100);
}

// Catches a dropped chunk that takes its neighbours along, and text refused because it came before
// the head.
TEST_F(CombinedStreamHandlerTest, dropsAChunkThatIsNotUtf8AndNothingElse) {
    for (const std::string& chunk :
         {event("\xE2\x82"), event("😀").substr(0, 39), std::string("\xAC"), event("😀").substr(39)})
        m_handler.didReceiveData(chunk);
    m_handler.didComplete({});
    EXPECT_THAT(told(), ElementsAre("token 😀", "text 😀"));
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
    auto endless = handler();
    while (endless.didReceiveData("data: the line goes on, ")) {
    }
    ASSERT_EQ(told().size(), 11u);
    EXPECT_EQ(told()[0].size(), size + std::string("token ").size());
    EXPECT_EQ(told()[9],
              "failure The speech service sent a text of more than 8 MB; the rest was not read");
    EXPECT_EQ(told()[10],
              "failure The speech service sent a line of more than 1 MB; the rest was not read");
}

// The fuzzer holds a handler against itself only; this holds it against what is right.
TEST_F(CombinedStreamHandlerTest, findsTheTextInOddStreams) {
    const std::pair<const char*, const char*> streams[] = {
        {"end-marker-with-cr.txt", "Bon|jour| après|"},
        {"unended-last-line.txt", "un|deux|"},
        {"other-lines.txt", "x|"},
        {"wrong-shapes.txt", "ok|"},
        {"unicode-and-escapes.txt", "déjà 😀 \"\\\n||  |été 👩‍💻 漢字| fin|"},
        {"deep-nesting.txt", "deep|"},
        {"invalid-utf8.bin", ""},
    };
    for (const auto& [name, expected] : streams) {
        std::string fragments;
        CombinedStreamHandler one(
            m_mainQueue, visibly, nullptr,
            [&](const std::string& fragment) { fragments += fragment + "|"; }, m_told.completion());
        one.didReceiveData(
            readFile(std::string(NULO_TEST_DATA "/event-stream/") + name, 1 << 20).value());
        one.didComplete({});
        m_mainQueue.runPending();
        EXPECT_EQ(fragments, expected) << name;
    }
}

// Catches callbacks that are destroyed on the session's thread when main was quicker.
TEST_F(CombinedStreamHandlerTest, letsItsCallbacksDieOnTheMainThread) {
    const auto captured = std::make_shared<int>();
    CombinedStreamHandler one(
        m_mainQueue, visibly, nullptr, [captured](const std::string&) {},
        [captured](const TextResult&) {});
    one.didReceiveData(event("Bon"));
    one.didComplete({});
    EXPECT_GT(captured.use_count(), 1);
    m_mainQueue.runPending();
    EXPECT_EQ(captured.use_count(), 1);
}

// Catches answers that reach the wrong request, handlers that are kept for ever, tasks without a
// handler that disturb the others, and a lock that is held while a handler runs.
TEST(StreamingSessionRouter, keepsTheAnswersOfInterleavedTasksApart) {
    FakeMainQueue mainQueue;
    StreamingSessionRouter router(visibly);
    Told told[2];
    std::weak_ptr<CombinedStreamHandler> first;
    for (int i = 0; i < 2; ++i) {
        const auto handler = std::make_shared<CombinedStreamHandler>(
            mainQueue, [&](std::string_view) { router.add(100, nullptr); }, nullptr,
            told[i].token(), told[i].completion());
        router.add(i, handler);
        if (i == 0)
            first = handler;
    }
    for (const auto& [task, status] : {std::pair{0, 401}, {1, 200}, {3, 500}})
        router.didReceiveResponse(task, {status, {}});
    router.didReceiveData(0, "no");
    router.didReceiveData(1, "data: {\"choices\":[{\"delta\":{\"content\":\"Bon\"}}]}\n");
    EXPECT_FALSE(router.didReceiveData(3, "dropped"));
    router.didComplete(3, {});
    router.didComplete(0, {});
    EXPECT_TRUE(first.expired());
    router.didComplete(1, {});
    router.didComplete(1, Error{"twice"});
    mainQueue.runPending();
    EXPECT_THAT(told[0].calls, ElementsAre("failure API error 401: no"));
    EXPECT_THAT(told[1].calls, ElementsAre("token Bon", "text Bon"));
}

}  // namespace
}  // namespace nulo
