#include "ui/overlay/WaveformPainting.h"

#include <gmock/gmock.h>

#include <QImage>
#include <numbers>
#include <random>

#include "ui/overlay/StreamingTextLayout.h"

namespace nulo {
namespace {

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
    WaveformContent content;
    content.streamingText = text;
    return content;
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
