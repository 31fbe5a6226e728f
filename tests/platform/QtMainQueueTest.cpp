#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>
#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/Backends.h"

namespace nulo {
namespace {

using namespace std::chrono_literals;

class QtMainQueueTest : public testing::Test {
  protected:
    int m_argumentCount = 1;
    char m_name[5] = "test";
    char* m_arguments[2] = {m_name, nullptr};
    QCoreApplication m_application{m_argumentCount, m_arguments};
    std::unique_ptr<MainQueue> m_queue = makeQtMainQueue();
    std::string m_done;

    MainQueue::Work mark(char letter) {
        return [this, letter] { m_done += letter; };
    }
    void runUntilQuit() { QCoreApplication::exec(); }
    static MainQueue::Work quit() {
        return [] { QCoreApplication::quit(); };
    }
};

// Fault: delayed work runs in the order queued, or work runs inside the call.
TEST_F(QtMainQueueTest, runsWorkByDueTimeThenInTheOrderQueued) {
    m_queue->asyncAfter(30ms, mark('e'));
    m_queue->asyncAfter(30ms, quit());
    m_queue->asyncAfter(15ms, mark('d'));
    m_queue->async(mark('a'));
    m_queue->asyncAfter(-1s, mark('b'));
    m_queue->async(mark('c'));
    m_queue->asyncAfter(MainQueue::Delay(1e300), mark('x'));
    EXPECT_EQ(m_done, "");
    runUntilQuit();
    EXPECT_EQ(m_done, "abcde");
}

// Fault: a thread's work is lost, reordered, or does not wake a sleeping loop.
TEST_F(QtMainQueueTest, keepsTheOrderOfEachThread) {
    constexpr int threads = 4, each = 500;
    std::vector<std::vector<int>> seen(threads);
    int total = 0;
    std::vector<std::thread> producers;
    for (int t = 0; t < threads; ++t)
        producers.emplace_back([&, t] {
            for (int i = 0; i < each; ++i)
                m_queue->async([&, t, i] {
                    seen[t].push_back(i);
                    if (++total == threads * each)
                        QCoreApplication::quit();
                });
        });
    runUntilQuit();
    for (std::thread& producer : producers)
        producer.join();
    for (const auto& numbers : seen) {
        EXPECT_EQ(numbers.size(), static_cast<std::size_t>(each));
        EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    }
}

// Fault: work that queues work without end freezes the user interface.
TEST_F(QtMainQueueTest, letsQtEventsThroughWhileWorkKeepsQueuing) {
    MainQueue::Work again = [&] { m_queue->async(again); };
    again();
    QTimer::singleShot(0, &m_application, &QCoreApplication::quit);
    runUntilQuit();
}

// Fault: a dialogue shown from a piece of work holds up all the work queued behind it.
TEST_F(QtMainQueueTest, carriesOnInsideANestedEventLoop) {
    QEventLoop inner;
    m_queue->async([&] {
        inner.exec();
        m_done += 'c';
        QCoreApplication::quit();
    });
    m_queue->async(mark('a'));
    m_queue->asyncAfter(5ms, [&] {
        m_done += 'b';
        inner.quit();
    });
    runUntilQuit();
    EXPECT_EQ(m_done, "abc");
}

// Fault: a timer that is destroyed by its own work, or while one is due, runs again or crashes.
TEST_F(QtMainQueueTest, stopsATimerAtOnce) {
    auto other = m_queue->every(1ms, mark('x'));
    std::unique_ptr<MainQueue::Timer> timer;
    int left = 3;
    const auto owned = std::make_shared<int>(0);
    timer = m_queue->every(2ms, [&, owned] {
        m_done += 'a';
        other.reset();
        if (--left == 0) {
            timer.reset();
            EXPECT_EQ(owned.use_count(), 2);  // what the running work holds is still there
            m_queue->asyncAfter(10ms, quit());
        }
    });
    m_done.clear();
    runUntilQuit();
    std::erase(m_done, 'x');
    EXPECT_EQ(m_done, "aaa");
    EXPECT_EQ(owned.use_count(), 1);
}

// Fault: work left over at the end is run, or what it owns is leaked.
TEST_F(QtMainQueueTest, dropsWhatIsLeftAtTheEnd) {
    const auto owned = std::make_shared<int>(0);
    m_queue->async([this, owned] { m_done += 'x'; });
    m_queue->asyncAfter(1h, [owned] {});
    auto timer = m_queue->every(1h, [owned] {});
    m_queue.reset();
    timer.reset();
    EXPECT_EQ(owned.use_count(), 1);
    QCoreApplication::processEvents();
    EXPECT_EQ(m_done, "");
}

}  // namespace
}  // namespace nulo
