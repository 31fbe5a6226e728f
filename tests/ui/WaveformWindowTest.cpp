#include "ui/overlay/WaveformWindow.h"

#include <QPointer>
#include <thread>

#include "fakes/PartTest.h"
#include "ui/overlay/OverlayGeometry.h"

namespace nulo {
namespace {

const QRect screen(0, 0, 800, 800);
constexpr MainQueue::Delay fade(0.3);

struct FakePlacement final : OverlayPlacement {
    QRect visibleFrame() override { return screen; }
    bool isComposited() override { return true; }
    void prepare(QWidget& window) override { window.setWindowFlags(Qt::FramelessWindowHint); }
    void place(QWidget& window, const QRect& panel, int margin) override {
        window.setGeometry(panel.adjusted(-margin, -margin, margin, margin));
    }
};

class WaveformWindowTest : public PartTest {
  protected:
    WaveformView& view() { return *overlay.waveformView(); }
    /// The panel's, as it is on the screen.
    QRect frame() { return view().geometry().translated(overlay.window()->pos()); }
    FakePlacement placement;
    Published<std::vector<float>> levels;
    WaveformWindow overlay{m_queue, m_clock, placement};
};

// A panel that jumps when the text comes, grows upward, or grows out of the screen.
TEST(OverlayGeometry, growsDownwardOnTheScreen) {
    const QRect wide = streamingPanelFrame(initialPanelFrame(QRect(1000, 30, 1280, 730)));
    EXPECT_EQ(wide, QRect(1440, 620, 400, 60));
    const QRect whole(1000, 0, 1280, 800);
    EXPECT_EQ(resizedPanelFrame(wide, 64, whole), wide);
    EXPECT_EQ(resizedPanelFrame(wide, 64.5, whole), QRect(1440, 620, 400, 65));
    EXPECT_EQ(resizedPanelFrame(wide, 200, whole), QRect(1440, 600, 400, 200));
}

// A mode that leaves the earlier one's state, timer or subscription behind.
TEST_F(WaveformWindowTest, goesThroughTheModesOfADictation) {
    overlay.show(levels);
    EXPECT_EQ(overlay.window()->windowOpacity(), 0);
    m_queue.advance(fade);
    EXPECT_EQ(overlay.window()->windowOpacity(), 1);
    levels.set({0.5f, 1.0f});
    EXPECT_EQ(view().audioLevels, levels.get());
    EXPECT_EQ(m_queue.pendingCount(), 0u);
    overlay.showTranscribing();
    levels.set({0.1f});
    EXPECT_TRUE(view().audioLevels.empty());
    EXPECT_EQ(view().statusText, "Transcription...");
    EXPECT_EQ(m_queue.pendingCount(), 1u);  // redraws

    overlay.showStreaming("Mail");
    EXPECT_FALSE(view().statusText);
    EXPECT_EQ(frame().width(), 300) << "it jumped";
    m_queue.advance(MainQueue::Delay(0.1));
    EXPECT_NEAR(frame().width(), 350, 20);
    m_queue.advance(fade);
    const QRect wide = frame();
    EXPECT_EQ(wide, streamingPanelFrame(initialPanelFrame(screen)));
    overlay.appendStreamingText("un\ndeux\n");
    overlay.appendStreamingText("trois\nquatre\ncinq");
    EXPECT_EQ(view().streamingText, "un\ndeux\ntrois\nquatre\ncinq");
    EXPECT_EQ(frame().top(), wide.top());
    EXPECT_GT(frame().height(), 80);

    overlay.hide();
    overlay.appendStreamingText("late");
    m_queue.advance(fade);
    EXPECT_EQ(overlay.window(), nullptr);
    EXPECT_EQ(m_queue.pendingCount(), 0u);
}

// The end of an old fade that takes the next dictation's panel away; an old panel, or a step of its
// dictation, left on the screen; steps that race the main thread or lose their order.
TEST_F(WaveformWindowTest, aNewPanelOutlivesTheFadeOfTheOldOne) {
    overlay.show(levels);
    const QPointer<QWidget> old = overlay.window();
    overlay.showDebugStep("old");
    overlay.hide();
    m_queue.advance(MainQueue::Delay(0.1));
    overlay.showDebugStep("late");
    overlay.show(levels);
    EXPECT_FALSE(old);
    std::thread([this] {
        overlay.updateDebugStep("nothing to replace");
        overlay.showDebugStep("a");
        overlay.showDebugStep("b");
        overlay.updateDebugStep("b 12ms");
    }).join();
    m_queue.advance(fade);
    EXPECT_EQ(overlay.window()->windowOpacity(), 1);
    EXPECT_EQ(view().debugLines, (std::vector<std::string>{"a", "b 12ms"}));
}

}  // namespace
}  // namespace nulo
