#include "ui/overlay/WaveformWindow.h"

#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QMouseEvent>
#include <QPointer>
#include <QScreen>
#include <thread>

#include "fakes/FakeMainQueue.h"
#include "rig/process/FakeClock.h"
#include "ui/overlay/OverlayGeometry.h"

namespace nulo {
namespace {

constexpr MainQueue::Delay fade(0.2);

/// A desktop with one screen.
struct FakePlacement final : OverlayPlacement {
    QRect visibleFrame() override { return QGuiApplication::primaryScreen()->availableGeometry(); }
    bool isComposited() override { return composited; }
    void prepare(QWidget& window) override { window.setWindowFlags(Qt::FramelessWindowHint); }
    void place(QWidget& window, const QRect& panel, int margin) override {
        window.setGeometry(panel.adjusted(-margin, -margin, margin, margin));
    }
    bool composited = true;
};

class WaveformWindowTest : public testing::Test {
  protected:
    WaveformView& view() { return *overlay.waveformView(); }
    /// Of the panel, as it is on the screen.
    QRect frame() { return view().geometry().translated(overlay.window()->pos()); }

    /// Times that the view is drawn over a second.
    int redrawsInASecond() {
        struct Counter : QObject {
            int count = 0;
            bool eventFilter(QObject*, QEvent* event) override {
                count += event->type() == QEvent::Paint;
                return false;
            }
        } counter;
        QCoreApplication::processEvents();
        view().installEventFilter(&counter);
        for (int i = 0; i < 100; ++i) {
            queue.advance(MainQueue::Delay(0.01));
            QCoreApplication::processEvents();
        }
        return counter.count;
    }

    FakeClock clock;
    FakeMainQueue queue{&clock};
    Published<std::vector<float>> levels;
    FakePlacement placement;
    WaveformWindow overlay{queue, clock, placement};
};

// A panel that jumps when the text comes, grows upward, or grows out of the screen.
TEST(OverlayGeometry, growsDownwardOnTheScreen) {
    const QRect screen(1000, 0, 1280, 800);
    const QRect shown = initialPanelFrame(QRect(1000, 30, 1280, 730));
    EXPECT_EQ(shown, QRect(1490, 620, 300, 60));
    const QRect wide = streamingPanelFrame(shown);
    EXPECT_EQ(wide, QRect(1440, 620, 400, 60));

    EXPECT_EQ(resizedPanelFrame(wide, 64, screen), wide);
    EXPECT_EQ(resizedPanelFrame(wide, 56, screen), wide);
    EXPECT_EQ(resizedPanelFrame(wide, 64.5, screen), QRect(1440, 620, 400, 65));
    EXPECT_EQ(resizedPanelFrame(wide, 43, screen), QRect(1440, 620, 400, 43));
    EXPECT_EQ(resizedPanelFrame(wide, 200, screen), QRect(1440, 600, 400, 200));
}

// Rubbish left in the corners, or the smooth edge cut away.
TEST(OverlayGeometry, roundedRegionHoldsWhatIsDrawn) {
    const QRegion region = roundedRegion({300, 60}, 12);
    EXPECT_EQ(region.boundingRect(), QRect(0, 0, 300, 60));
    for (const QPoint corner : {QPoint(0, 0), QPoint(299, 0), QPoint(0, 59), QPoint(299, 59)})
        EXPECT_FALSE(region.contains(corner));
    EXPECT_FALSE(region.contains(QPoint(6, 0)));
    EXPECT_TRUE(region.contains(QPoint(7, 0)));
    EXPECT_TRUE(region.contains(QPoint(4, 3)));
    EXPECT_TRUE(region.contains(QPoint(0, 11)));
}

// A mode that leaves the earlier one's state, timer or subscription behind.
TEST_F(WaveformWindowTest, goesThroughTheModesOfADictation) {
    overlay.show(levels);
    ASSERT_TRUE(overlay.window()->isVisible());
    EXPECT_EQ(frame(), initialPanelFrame(QGuiApplication::primaryScreen()->availableGeometry()));
    EXPECT_EQ(overlay.window()->windowOpacity(), 0);
    queue.advance(MainQueue::Delay(0.07));
    EXPECT_NEAR(overlay.window()->windowOpacity(), 0.45, 0.1);
    queue.advance(fade);
    EXPECT_EQ(overlay.window()->windowOpacity(), 1);
    EXPECT_EQ(redrawsInASecond(), 0);
    levels.set({0.5f, 1.0f});
    EXPECT_EQ(view().audioLevels, levels.get());

    overlay.showTranscribing();
    levels.set({0.1f});
    EXPECT_TRUE(view().audioLevels.empty());
    EXPECT_EQ(view().statusText, "Transcription...");
    EXPECT_NEAR(redrawsInASecond(), 20, 1);

    overlay.showStreaming("Mail");
    EXPECT_FALSE(view().statusText);
    EXPECT_EQ(view().streamingText, "");
    EXPECT_EQ(frame().width(), 300) << "it jumped";
    queue.advance(MainQueue::Delay(0.1));
    const QRect widening = frame();
    EXPECT_NEAR(widening.width(), 350, 20);
    queue.advance(fade);
    const QRect wide = frame();
    EXPECT_EQ(wide, streamingPanelFrame(
                        initialPanelFrame(QGuiApplication::primaryScreen()->availableGeometry())));
    EXPECT_EQ(widening.center().x(), wide.center().x());
    EXPECT_NEAR(redrawsInASecond(), 20, 1);

    overlay.appendStreamingText("un\ndeux\n");
    overlay.appendStreamingText("trois\nquatre\ncinq");
    EXPECT_EQ(view().streamingText, "un\ndeux\ntrois\nquatre\ncinq");
    EXPECT_EQ(frame().top(), wide.top());
    EXPECT_GT(frame().height(), 80);

    overlay.hide();
    EXPECT_EQ(overlay.waveformView(), nullptr);
    EXPECT_TRUE(overlay.window()->isVisible());
    queue.advance(fade);
    EXPECT_EQ(overlay.window(), nullptr);
    queue.advance(MainQueue::Delay(1));
    EXPECT_EQ(queue.pendingCount(), 0u);  // no timer runs on
}

// Text, timers or steps brought back by calls that come too late or too early.
TEST_F(WaveformWindowTest, ignoresCallsWithoutAPanel) {
    const auto callAll = [&] {
        overlay.showTranscribing();
        overlay.showStreaming("");
        overlay.appendStreamingText("x");
        overlay.showDebugStep("x");
        overlay.updateDebugStep("x");
        overlay.hide();
    };
    callAll();
    overlay.show(levels);
    queue.advance(fade);
    overlay.hide();
    callAll();
    queue.advance(fade);
    levels.set({1.0f});
    callAll();
    queue.advance(MainQueue::Delay(1));
    EXPECT_EQ(overlay.window(), nullptr);
    EXPECT_EQ(queue.pendingCount(), 0u);
}

// The end of an old fade that takes the next dictation's panel away; an old panel left on screen.
TEST_F(WaveformWindowTest, aNewPanelOutlivesTheFadeOfTheOldOne) {
    overlay.show(levels);
    queue.advance(fade);
    const QPointer<QWidget> old = overlay.window();
    overlay.showDebugStep("old");
    overlay.hide();
    queue.advance(MainQueue::Delay(0.1));
    overlay.show(levels);
    EXPECT_FALSE(old);
    queue.advance(fade);
    ASSERT_NE(overlay.waveformView(), nullptr);
    EXPECT_EQ(overlay.window()->windowOpacity(), 1);
    EXPECT_TRUE(view().debugLines.empty());

    overlay.showTranscribing();
    overlay.show(levels);  // without a hide
    levels.set({1.0f});
    EXPECT_EQ(view().audioLevels.size(), 1u);
    queue.advance(fade);
    EXPECT_EQ(redrawsInASecond(), 0);
}

// Steps that race the main thread, lose their order, or outlive the window.
TEST_F(WaveformWindowTest, debugStepsComeFromAnyThreadInOrder) {
    overlay.show(levels);
    std::thread([this] {
        overlay.updateDebugStep("nothing to replace");
        overlay.showDebugStep("a");
        overlay.showDebugStep("b");
        overlay.updateDebugStep("b 12ms");
    }).join();
    EXPECT_TRUE(view().debugLines.empty());
    queue.runPending();
    EXPECT_EQ(view().debugLines, (std::vector<std::string>{"a", "b 12ms"}));
    overlay.showStreaming("");
    EXPECT_EQ(view().debugLines.size(), 2u);

    auto shortLived = std::make_unique<WaveformWindow>(queue, clock, placement);
    shortLived->show(levels);
    shortLived->showTranscribing();
    shortLived->showDebugStep("late");
    shortLived.reset();
    queue.advance(MainQueue::Delay(1));
    levels.set({1.0f});
}

// A drag that makes the panel jump when it widens under the pointer.
TEST_F(WaveformWindowTest, isDraggedByItsBackground) {
    overlay.show(levels);
    const auto mouse = [&](QEvent::Type type, QPoint global) {
        const QPointF local = global - frame().topLeft();
        QMouseEvent event(type, local, global, Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(&view(), &event);  // which passes it on to the panel
    };
    const QRect start = frame();
    const QPoint pointer = start.center();
    mouse(QEvent::MouseButtonPress, pointer);
    mouse(QEvent::MouseMove, pointer + QPoint(10, -20));
    EXPECT_EQ(frame(), start.translated(10, -20));
    overlay.showStreaming("");
    mouse(QEvent::MouseMove, pointer + QPoint(15, -25));
    EXPECT_EQ(frame(), start.translated(15, -25)) << "widens from here";
    queue.advance(fade);
    EXPECT_EQ(frame(), streamingPanelFrame(start).translated(15, -25));
    overlay.appendStreamingText("un\ndeux\ntrois\nquatre\ncinq");
    mouse(QEvent::MouseMove, pointer + QPoint(15, -30));
    EXPECT_EQ(frame().topLeft(), streamingPanelFrame(start).topLeft() + QPoint(15, -30));
}

}  // namespace
}  // namespace nulo
