#include "transcription/StreamingSessionRouter.h"

#include <gmock/gmock.h>

#include "Told.h"
#include "fakes/FakeMainQueue.h"
#include "fakes/PrintedLines.h"

namespace nulo {
namespace {

using testing::ElementsAre;

// Catches answers that reach the wrong request, handlers that are kept for ever, tasks without a
// handler that disturb the others, and a lock that is held while a handler runs.
TEST(StreamingSessionRouter, keepsTheAnswersOfInterleavedTasksApart) {
    FakeMainQueue mainQueue;
    StreamingSessionRouter router([](std::string_view) {});
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

// Catches rounding, swapped ends, missing values taken for 0 and the second line written in vain.
TEST(StreamingSessionRouter, writesTheTimingsOfEveryTransaction) {
    PrintedLines log;
    StreamingSessionRouter router(log.print());
    const auto at = [](int microseconds) {
        return std::chrono::steady_clock::time_point(std::chrono::microseconds(microseconds));
    };
    const HttpTransactionMetrics full{false,      "h2",       at(7),      at(1'234'007), at(100),
                                      at(2099),   at(2000),   at(30'000), at(10'000),    at(29'000),
                                      at(31'007), at(35'007), at(800'000)};
    const HttpTransactionMetrics reused{
        .reusedConnection = true, .fetchStart = at(0), .requestStart = at(0)};
    router.didCollectMetrics(7, {full, reused});
    router.didCollectMetrics(8, {});
    EXPECT_THAT(
        log.lines(),
        ElementsAre("[URLMetrics] NEW h2 | DNS: 1ms | Connect: 28ms | TLS: 19ms | Request: 4ms | "
                    "Response: 434ms | Total: 1234ms",
                    "[URLMetrics] fetchStart→requestStart: 31ms, requestStart→requestEnd: 4ms",
                    "[URLMetrics] REUSED ? | DNS: n/a | Connect: n/a | TLS: n/a | Request: n/a | "
                    "Response: n/a | Total: n/a"));
}

}  // namespace
}  // namespace nulo
