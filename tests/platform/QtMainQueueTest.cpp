#include <gtest/gtest.h>

#include <QEventLoop>
#include <QTimer>

#include "platform/Backends.h"
#include "support/QtProgram.h"

namespace nulo {
namespace {

using namespace std::chrono_literals;

class QtMainQueueTest : public testing::Test {
  protected:
    QtProgram<> m_program;
    std::unique_ptr<MainQueue> m_queue = makeQtMainQueue();
    std::string m_done;

    MainQueue::Work mark(char letter) {
        return [this, letter] { m_done += letter; };
    }
};

// Delayed work in the order queued, work run inside the call or held up by a dialogue, work that
// queues work without end and freezes the user interface; a thread's work that is lost, reordered,
// or does not wake a sleeping loop.
TEST_F(QtMainQueueTest, runsWorkByDueTimeThenInTheOrderQueued) {
    QEventLoop inner;
    MainQueue::Work again = [&] { m_queue->async(again); };
    again();
    m_queue->asyncAfter(30ms, mark('e'));
    m_queue->asyncAfter(30ms, [&] { inner.quit(); });
    m_queue->asyncAfter(15ms, mark('d'));
    m_queue->async(mark('a'));
    m_queue->async([&] {
        inner.exec();
        QTimer::singleShot(0, &m_program.application, &QCoreApplication::quit);
    });
    m_queue->asyncAfter(-1s, mark('b'));
    m_queue->async(mark('c'));
    m_queue->asyncAfter(MainQueue::Delay(1e300), mark('x'));
    EXPECT_EQ(m_done, "");
    QCoreApplication::exec();
    EXPECT_EQ(m_done, "abcde");

    m_queue = makeQtMainQueue();
    std::vector<int> seen[4];
    std::vector<std::thread> producers;
    int left = 2000;
    for (auto& numbers : seen)
        producers.emplace_back([&] {
            for (int i = 0; i < 500; ++i)
                m_queue->async([&, i] {
                    numbers.push_back(i);
                    if (--left == 0)
                        QCoreApplication::quit();
                });
        });
    QCoreApplication::exec();
    for (std::thread& producer : producers)
        producer.join();
    for (const auto& numbers : seen)
        EXPECT_TRUE(numbers.size() == 500 && std::is_sorted(numbers.begin(), numbers.end()));
}

// A timer destroyed by its own work, or while one is due, that runs again or crashes; work left
// over at the end that is run or leaked.
TEST_F(QtMainQueueTest, stopsAtOnce) {
    auto other = m_queue->every(1ms, mark('x'));
    std::unique_ptr<MainQueue::Timer> timer;
    const auto owned = std::make_shared<int>(3);
    timer = m_queue->every(2ms, [&, owned] {
        other.reset();
        m_done += 'a';
        if (--*owned == 0) {
            timer.reset();
            EXPECT_EQ(owned.use_count(), 2);  // what the running work holds is still there
            m_queue->asyncAfter(10ms, [] { QCoreApplication::quit(); });
        }
    });
    QCoreApplication::exec();
    std::erase(m_done, 'x');
    EXPECT_EQ(m_done, "aaa");
    m_queue->async([this, owned] { m_done += 'x'; });
    m_queue->asyncAfter(1h, [owned] {});
    m_queue.reset();
    EXPECT_EQ(owned.use_count(), 1);
    QCoreApplication::processEvents();
    EXPECT_EQ(m_done, "aaa");
}

}  // namespace
}  // namespace nulo
