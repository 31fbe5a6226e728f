#include "transcription/StreamingSessionRouter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fakes/FakeMainQueue.h"
#include "fakes/PrintedLines.h"

namespace nulo {
namespace {

using std::chrono::microseconds;
using testing::ElementsAre;

class StreamingSessionRouterTest : public testing::Test {
  protected:
    /// It registers another whenever it logs, which a lock held while it runs would stop for ever.
    std::shared_ptr<CombinedStreamHandler> handler(const std::string& name) {
        return std::make_shared<CombinedStreamHandler>(
            m_mainQueue, [this](std::string_view) { m_router.add(100, nullptr); }, nullptr,
            [](const std::string&) {},
            [this, name](const TextResult& result) {
                m_calls.push_back(name + ": " +
                                  (result ? result.value() : describe(result.error())));
            });
    }

    FakeMainQueue m_mainQueue;
    PrintedLines m_log;
    std::vector<std::string> m_calls;
    StreamingSessionRouter m_router{m_log.print()};
};

// Catches answers that reach the wrong request, handlers that are kept for ever, and tasks without
// a handler that disturb the others.
TEST_F(StreamingSessionRouterTest, keepsTheAnswersOfInterleavedTasksApart) {
    std::weak_ptr<CombinedStreamHandler> first;
    {
        const auto made = handler("first");
        first = made;
        m_router.add(1, made);
    }
    m_router.add(2, handler("second"));
    m_router.didReceiveResponse(1, {401, {}});
    m_router.didReceiveResponse(2, {200, {}});
    m_router.didReceiveResponse(3, {500, {}});
    m_router.didReceiveData(1, "no");
    m_router.didReceiveData(2, "data: {\"choices\":[{\"delta\":{\"content\":\"Bon\"}}]}\n");
    m_router.didReceiveData(3, "dropped");
    m_router.didComplete(3, {});
    m_router.didComplete(1, {});
    EXPECT_TRUE(first.expired());
    m_router.didComplete(2, {});
    m_router.didComplete(2, Error{"twice"});
    m_mainQueue.runPending();
    EXPECT_THAT(m_calls, ElementsAre("first: API error 401: no", "second: Bon"));
}

// Catches rounding, swapped ends, missing values taken for 0 and the second line written in vain.
TEST_F(StreamingSessionRouterTest, writesTheTimingsOfEveryTransaction) {
    const std::chrono::steady_clock::time_point start{std::chrono::hours(1)};
    const auto at = [&](int time) { return start + microseconds(time); };
    const HttpTransactionMetrics full{.protocolName = "h2",
                                      .fetchStart = start,
                                      .responseEnd = at(1'234'000),
                                      .domainLookupStart = at(100),
                                      .domainLookupEnd = at(2099),
                                      .connectStart = at(2000),
                                      .connectEnd = at(30'000),
                                      .secureConnectionStart = at(10'000),
                                      .secureConnectionEnd = at(29'000),
                                      .requestStart = at(31'000),
                                      .requestEnd = at(35'000),
                                      .responseStart = at(800'000)};
    HttpTransactionMetrics reused;
    reused.reusedConnection = true;
    reused.fetchStart = start;
    reused.requestStart = start;
    m_router.didCollectMetrics(7, {full, reused});
    m_router.didCollectMetrics(8, {});
    EXPECT_THAT(
        m_log.lines(),
        ElementsAre("[URLMetrics] NEW h2 | DNS: 1ms | Connect: 28ms | TLS: 19ms | Request: 4ms | "
                    "Response: 434ms | Total: 1234ms",
                    "[URLMetrics] fetchStart\u2192requestStart: 31ms, "
                    "requestStart\u2192requestEnd: 4ms",
                    "[URLMetrics] REUSED ? | DNS: n/a | Connect: n/a | TLS: n/a | Request: n/a | "
                    "Response: n/a | Total: n/a"));
}

}  // namespace
}  // namespace nulo
