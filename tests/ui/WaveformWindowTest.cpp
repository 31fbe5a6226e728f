#include "ui/overlay/WaveformWindow.h"

#include <QImage>
#include <QPointer>
#include <numbers>
#include <random>
#include <thread>

#include "fakes/PartTest.h"
#include "ui/overlay/OverlayGeometry.h"
#include "ui/overlay/StreamingTextLayout.h"
#include "ui/overlay/WaveformPainting.h"

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
    void setOpacity(QWidget& window, double opacity) override { window.setWindowOpacity(opacity); }
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

constexpr double brightest = std::numbers::pi / 10;  // of the cursor's blink

QImage draw(const WaveformContent& content, QSize size = {300, 60}, double seconds = brightest,
            double scale = 1, WaveformMemory* memory = nullptr) {
    QImage image((size.toSizeF() * scale).toSize(), QImage::Format_RGB32);
    image.setDevicePixelRatio(scale);
    image.fill(QColor(0, 0, 90));
    QPainter painter(&image);
    WaveformMemory none;
    paintWaveform(painter, content, memory ? *memory : none, size, seconds);
    return image;
}

/// The box around the red pixels, those of bars, dots, marks and the cursor, of a part or of all.
QRect red(const QImage& image, QRect in = {0, 0, 300, 200}) {
    QRect found;
    for (int y = in.top(); y <= std::min(in.bottom(), image.height() - 1); ++y)
        for (int x = in.left(); x <= std::min(in.right(), image.width() - 1); ++x)
            if (const QColor c = image.pixelColor(x, y); c.red() > 60 && c.green() < c.red() / 2)
                found |= QRect(x, y, 1, 1);
    return found;
}

WaveformContent streaming(const std::string& text) {
    return {.streamingText = text};
}

// Modes that win over one another in the wrong order; marks at the wrong edge; the oldest levels
// drawn instead of the newest.
TEST(WaveformPainting, modesTakePrecedenceInOrder) {
    WaveformContent content;
    EXPECT_EQ(red(draw(content)), QRect(147, 27, 6, 6));
    content.audioLevels.assign(80, 0.0f);
    content.audioLevels[27] = content.audioLevels[79] = 1.0f;  // the first and last of 53
    EXPECT_EQ(red(draw(content), QRect(0, 0, 20, 30)), QRect(12, 10, 6, 6) | QRect(18, 12, 2, 18));
    EXPECT_EQ(red(draw(content), QRect(0, 40, 300, 20)), QRect(18, 40, 264, 8));
    content.statusText = "Transcription...";
    EXPECT_EQ(red(draw(content)), QRect(130, 15, 25, 5));
    content.streamingText = "";
    content.streamingDone = true;
    const QImage without = draw(content);
    EXPECT_EQ(red(without), QRect());
    content.debugLines = {"ab", "cd"};
    EXPECT_NE(draw(content), without);
}

// A cursor that stays, or stands elsewhere than 8 points after the last glyph's start.
TEST(WaveformPainting, cursorFollowsTheLastGlyphUntilDone) {
    for (const std::string text : {"", "mm", "mm\ni"}) {
        WaveformContent content = streaming(text);
        StreamingTextLayout layout;
        layout.update(text, 276);
        const QPointF glyph = layout.lastGlyph() + QPointF(text.empty() ? 12 : 20, 12 - 16);
        const QRect cursor = red(draw(content, {300, 80}));
        EXPECT_NEAR(cursor.left(), glyph.x(), 1) << text;
        EXPECT_NEAR(cursor.top(), glyph.y(), 1) << text;
        EXPECT_NEAR(cursor.height(), 14, 1);
        EXPECT_EQ(red(draw(content, {300, 80}, 3 * brightest)), QRect());
        content.streamingDone = true;
        EXPECT_EQ(red(draw(content, {300, 80})), QRect());
    }
}

// The oldest lines kept on show instead of the newest, a panel that outgrows its bound.
TEST(WaveformPainting, longTextShowsItsNewestLines) {
    StreamingTextLayout layout;
    const auto height = [&](const std::string& text) {
        return idealHeightForStreamingText(streaming(text), layout, 400);
    };
    EXPECT_EQ(height(""), 60);
    EXPECT_NEAR(height("m\nm\nm"), 3 * (height("m") - 28) + 2 * 2 + 28, 1e-6);
    EXPECT_EQ(height(std::string(60, '\n')), 200);
    std::string newest;
    for (int i = 1; i < 30; ++i)
        newest += "\n" + std::string(i, 'm');
    EXPECT_EQ(draw(streaming("old\nlines" + newest), {400, 200}),
              draw(streaming("other" + newest), {400, 200}));
}

// A picture kept for another level, place, size, scale or colour, or copied beside its place.
TEST(WaveformPainting, keptPicturesLookLikeNewOnes) {
    WaveformMemory memory;
    for (const double scale : {1.0, 1.5, 2.0}) {
        WaveformContent content;
        for (int i = 0; i < 60; ++i) {  // the row grows, then moves on
            content.audioLevels.push_back(static_cast<float>(i % 17) / 16);
            content.barColor = i == 59 ? Qt::green : Qt::red;
            const QSize size(i < 55 ? 300 : 200, 60);
            EXPECT_EQ(draw(content, size, 0, scale, &memory), draw(content, size, 0, scale)) << i;
        }
    }
}

QImage picture(const StreamingTextLayout& layout) {
    QImage image(300, 400, QImage::Format_RGB32);
    image.fill(Qt::black);
    QPainter painter(&image);
    painter.setPen(Qt::white);
    layout.draw(painter, {0, 400 - layout.height()}, image.rect());
    return image;
}

// Lines kept from before that no longer hold: a word that moves to the next line, a paragraph that
// turns out to run right to left, a carriage return whose line feed comes later, halves of letters.
TEST(StreamingTextLayout, appendedPiecesGiveWhatTheWholeTextGives) {
    std::string longParagraph;
    for (int i = 0; i < 900; ++i)
        longParagraph += "mot" + std::to_string(i * 7919) + (i % 9 ? " " : ", ");
    std::minstd_rand random(1);
    for (const std::string& text :
         {longParagraph + "\n\nfin " + longParagraph,
          "a\r\nb\rc\n\n\r\n" + std::string(3000, 'W') + "\n",
          std::string("123 \u05E9\u05DC\u05D5\u05DD\nabc \U0001F469\u200D\U0001F4BB \xFF\xC3")}) {
        StreamingTextLayout grown;
        for (std::size_t length = 0; length < text.size();) {
            length = std::min(text.size(), length + 1 + random() % (text.size() / 40 + 3));
            grown.update(text.substr(0, length), 300);
        }
        StreamingTextLayout whole;
        whole.update(text, 300);
        EXPECT_EQ(grown.lastGlyph(), whole.lastGlyph());
        EXPECT_EQ(picture(grown), picture(whole));
    }
}

// A service gone wild; laid out as one, this takes minutes.
TEST(StreamingTextLayout, laysAMillionLettersWithoutASpaceOut) {
    StreamingTextLayout layout;
    layout.update(std::string(1'000'000, 'W'), 300);
    EXPECT_LT(layout.lastGlyph().x(), 300);
}

}  // namespace
}  // namespace nulo
