#include "ui/overlay/WaveformPainting.h"

#include <gtest/gtest.h>

#include <QImage>
#include <cmath>
#include <numbers>

namespace nulo {
namespace {

const QColor backdrop(0, 0, 90);

/// An overlay drawn on blue, which no mark of it is.
struct Drawing {
    /// With what earlier drawings left in `memory`, if any is given.
    Drawing(const WaveformContent& content, QSize size, double seconds = 0, double scale = 1,
            WaveformMemory* memory = nullptr)
        : image((size.toSizeF() * scale).toSize(), QImage::Format_RGB32) {
        image.setDevicePixelRatio(scale);
        image.fill(backdrop);
        QPainter painter(&image);
        WaveformMemory none;
        paintWaveform(painter, content, memory ? *memory : none, size, seconds);
    }

    /// The bar colour's alpha over the background, in hundredths; 0 where the background shows.
    int redness(int x, int y) const {
        const QColor pixel = image.pixelColor(x, y);
        return qRound((pixel.redF() - 0.08) / (1.0 - 0.08) * 100);
    }
    /// Pixels in the rectangle that `matches` accepts: the box around them.
    template <typename Matches>
    QRect find(QRect in, Matches matches) const {
        QRect found;
        for (int y = in.top(); y <= in.bottom(); ++y)
            for (int x = in.left(); x <= in.right(); ++x)
                if (matches(image.pixelColor(x, y)))
                    found |= QRect(x, y, 1, 1);
        return found;
    }
    QRect find(bool (*matches)(const QColor&)) const { return find(image.rect(), matches); }

    QImage image;
};

bool isRed(const QColor& c) {
    return c.red() > 60 && c.green() < c.red() / 2;
}
bool isGreyText(const QColor& c) {
    return c.red() > 60 && c.red() == c.green();
}
bool isGreen(const QColor& c) {
    return c.green() > 90 && c.red() < c.green() * 2 / 3;
}

WaveformContent withLevels(std::vector<float> levels) {
    WaveformContent content;
    content.audioLevels = std::move(levels);
    return content;
}

WaveformContent withText(std::string text, bool done = true) {
    WaveformContent content;
    content.streamingText = std::move(text);
    content.streamingDone = done;
    return content;
}

std::string numberedLines(int from, int to) {
    std::string text;
    for (int i = from; i <= to; ++i)
        text += (i > from ? "\n" : "") + std::string(i % 30 + 1, 'm');
    return text;
}

double idealHeight(const std::string& text, double width = 400) {
    StreamingTextLayout layout;
    return idealHeightForStreamingText(withText(text), layout, width);
}

// The oldest levels drawn instead of the newest, a row off its centre, a wrong pitch.
TEST(WaveformPainting, drawsTheNewestBarsThatFit) {
    std::vector<float> levels(80, 1.0f);
    std::fill_n(levels.begin() + 28, 51,
                0.0f);  // of the 53 newest, the first and the last are loud
    levels[27] = 1.0f;
    const Drawing full(withLevels(levels), {300, 60});
    // Columns at mid height: 53 bars from x = 18.5, every 5, so 2 whole pixels each.
    for (int bar = 0; bar < 53; ++bar) {
        EXPECT_GT(full.redness(19 + 5 * bar, 30), 30) << bar;
        EXPECT_EQ(full.redness(22 + 5 * bar, 30), 0) << bar;
    }
    EXPECT_EQ(full.find(QRect(0, 45, 300, 15), isRed), QRect(18, 45, 264, 3));
    EXPECT_EQ(full.find(QRect(24, 45, 252, 15), isRed), QRect());

    const Drawing ten(withLevels(std::vector<float>(10, 1.0f)), {300, 60});
    EXPECT_EQ(ten.find(QRect(40, 0, 260, 60), isRed), QRect(126, 12, 48, 36));
    EXPECT_EQ(Drawing(withLevels(levels), {28, 60}).find(QRect(0, 22, 28, 38), isRed), QRect());
    EXPECT_DEATH(Drawing(withLevels(levels), QSize(27, 60)), "narrow");
}

// A quiet bar that vanishes, a loud one that is dim or too high.
TEST(WaveformPainting, barShowsItsLevelByHeightAndOpacity) {
    const Drawing drawing(withLevels({0.0f, 0.5f, 1.0f, 0.0f}),
                          {300, 60});  // x = 141, 146, 151, 156
    const auto barAt = [&](int x) { return drawing.find(QRect(x, 0, 3, 60), isRed); };
    EXPECT_EQ(barAt(141), QRect(141, 29, 3, 2));
    EXPECT_EQ(drawing.redness(142, 30), 40);
    EXPECT_EQ(barAt(146), QRect(146, 21, 3, 18));
    EXPECT_EQ(drawing.redness(147, 30), 70);
    EXPECT_EQ(barAt(151), QRect(151, 12, 3, 36));
    EXPECT_EQ(drawing.redness(152, 30), 100);
}

// Modes that win over one another in the wrong order; marks at the wrong edge (y turned twice).
TEST(WaveformPainting, modesTakePrecedenceInOrder) {
    WaveformContent content;
    content.debugLines = {"step"};
    const Drawing idle(content, {300, 60});
    EXPECT_EQ(idle.find(isRed), QRect(147, 27, 6, 6));
    EXPECT_EQ(idle.find(isGreen), QRect());  // the strip belongs to the later modes

    content.audioLevels = {1.0f};
    const Drawing recording(content, {300, 60});
    const QRect mark(12, 10, 6, 6);
    EXPECT_EQ(recording.find(QRect(0, 0, 60, 60), isRed), mark);
    const QRect label = recording.find(QRect(20, 0, 60, 60), isGreyText);
    EXPECT_TRUE(QRect(22, 3, 24, 14).contains(label)) << label.width();
    EXPECT_GT(label.height(), 5);
    EXPECT_EQ(recording.find(isGreen), QRect());

    content.statusText = "Transcription...";
    const Drawing status(content, {300, 60});
    EXPECT_EQ(status.find(mark.adjusted(0, 0, 30, 0), isRed), QRect());
    EXPECT_NE(status.find(isGreen), QRect());

    content.streamingText = "";
    content.streamingDone = true;
    const Drawing streaming(content, {300, 60});
    EXPECT_EQ(streaming.find(isRed), QRect());
    EXPECT_EQ(streaming.find(QRect(0, 0, 300, 40), isGreyText), QRect());
    EXPECT_NE(streaming.find(isGreen), QRect());

    EXPECT_EQ(idle.image.pixelColor(0, 0), backdrop);
    EXPECT_EQ(idle.image.pixelColor(150, 0), QColor(20, 20, 20));
}

// Dots that pulse together, too fast, or away to nothing.
TEST(WaveformPainting, statusDotsPulseInAWave) {
    WaveformContent content;
    content.statusText = "Transcription...";
    const auto dots = [&](double seconds) {
        const Drawing drawing(content, {300, 60}, seconds);
        return std::vector{drawing.redness(132, 17), drawing.redness(142, 17),
                           drawing.redness(152, 17)};  // centres, 12.5 below the upper edge
    };
    const auto alpha = [](double phase) {
        return qRound(((std::sin(phase) + 1) * 0.5 * 0.7 + 0.3) * 100);
    };
    for (const double seconds : {0.0, 0.25, 1.0, std::numbers::pi / 2}) {
        const std::vector<int> drawn = dots(seconds);
        for (int dot = 0; dot < 3; ++dot)
            EXPECT_NEAR(drawn[dot], alpha(seconds * 3 + 0.8 * dot), 1) << seconds << ' ' << dot;
    }
    const Drawing drawing(content, {300, 60}, std::numbers::pi / 6);
    EXPECT_EQ(drawing.find(isRed), QRect(130, 15, 25, 5));
    const QRect text = drawing.find(isGreyText);
    EXPECT_NEAR(text.center().x(), 150, 2);
    EXPECT_NEAR(text.center().y(), 35, 3);
}

// A cursor that stays, stands elsewhere than after the text, or blinks at another pace.
TEST(WaveformPainting, cursorFollowsTheLastGlyphUntilDone) {
    const double bright = std::numbers::pi / 10;  // sin(5 t) = 1
    const QSize size(400, 60);
    const Drawing empty(withText("", false), size, bright);
    const QRect atOrigin = empty.find(isRed);
    EXPECT_EQ(atOrigin.left(), 12);
    EXPECT_EQ(atOrigin.size(), QSize(2, 14));
    EXPECT_TRUE(QRect(12, 10, 2, 18).contains(atOrigin)) << atOrigin.top();

    EXPECT_EQ(Drawing(withText("", true), size, bright).find(isRed), QRect());
    EXPECT_EQ(Drawing(withText("", false), size, 3 * bright).find(isRed), QRect());

    const QFontMetricsF metrics(systemFont(12, QFont::Normal));
    const auto cursor = [&](const std::string& text) {
        return Drawing(withText(text, false), size, bright).find(isRed);
    };
    // "mm": 8 from the start of the second m, whatever its width.
    EXPECT_NEAR(cursor("mm").left(), 12 + metrics.horizontalAdvance("m") + 8, 1);
    EXPECT_EQ(cursor("mm").top(), atOrigin.top());
    EXPECT_NEAR(cursor("mm\n").left(), 12 + 2 * metrics.horizontalAdvance("m") + 8, 1);
    EXPECT_EQ(cursor("mm\n").top(), atOrigin.top());
    EXPECT_NEAR(cursor("mm\ni").left(), 12 + 8, 1);
    EXPECT_NEAR(cursor("mm\ni").top(), atOrigin.top() + metrics.lineSpacing() + 2, 1);
}

// The oldest lines kept on show instead of the newest, a panel that outgrows its bound, text that
// does not hang from the top, a status strip off the bottom edge.
TEST(WaveformPainting, longTextShowsItsNewestLines) {
    EXPECT_EQ(idealHeight(""), 60);
    const double line = idealHeight("m") - 28;
    EXPECT_NEAR(line, QFontMetricsF(systemFont(12, QFont::Normal)).lineSpacing(), 1);
    EXPECT_EQ(idealHeight("m\nm\nm"), 3 * line + 2 * 2 + 28);
    EXPECT_EQ(idealHeight(numberedLines(1, 40)), 200);
    EXPECT_EQ(idealHeight(std::string(200, 'm')), idealHeight(std::string(200, 'm') + "\n"));

    const QRect hanging = Drawing(withText("M"), {400, 60}).find(isGreyText);
    EXPECT_GE(hanging.top(), 12);
    EXPECT_LT(hanging.bottom(), 12 + line);

    const QSize size(400, 200);
    const Drawing all(withText(numberedLines(1, 40)), size);
    const Drawing newest(withText(numberedLines(20, 40)), size);
    EXPECT_EQ(all.image, newest.image);
    const QRect text = all.find(isGreyText);
    EXPECT_GE(text.bottom(), 188 - line);
    EXPECT_LT(text.bottom(), 188);
    EXPECT_LT(text.top(), 12);  // runs out at the edge of the panel, not of the box

    WaveformContent debugged = withText("m");
    debugged.debugLines = {"ab", "cd"};
    const QRect strip = Drawing(debugged, {400, 60}).find(isGreen);
    EXPECT_NEAR(strip.center().x(), 200, 2);
    EXPECT_TRUE(QRect(0, 38, 400, 16).contains(strip)) << strip.top();
    WaveformContent joined = debugged;
    joined.debugLines = {"ab  |  cd"};
    EXPECT_EQ(Drawing(debugged, {400, 60}).image, Drawing(joined, {400, 60}).image);
}

// A layout that depends on the screen's scale: other line breaks, half the size.
TEST(WaveformPainting, looksTheSameAtTwiceTheScale) {
    const std::string text = "Une phrase pour plusieurs lignes du panneau";
    for (const WaveformContent& content :
         {withText(text), withLevels(std::vector<float>(80, 0.7f))}) {
        const Drawing once(content, {200, 60});
        const Drawing twice(content, {200, 60}, 0, 2);
        const auto isDrawn = [](const QColor& c) { return c.red() > 60; };
        const QRect small = once.find(QRect(12, 4, 176, 52), isDrawn);
        const QRect large = twice.find(QRect(24, 8, 352, 104), isDrawn);
        EXPECT_NEAR(small.left() * 2, large.left(), 2);
        EXPECT_NEAR(small.top() * 2, large.top(), 2);
        EXPECT_NEAR(small.right() * 2 + 1, large.right(), 3);
        EXPECT_NEAR(small.bottom() * 2 + 1, large.bottom(), 2);
    }
}

// A picture kept for another level, place, size, scale or colour; one that is cut off, or copied
// a pixel beside its place.
TEST(WaveformPainting, keptPicturesLookLikeNewOnes) {
    WaveformMemory memory;
    for (const double scale : {1.0, 1.5, 2.0}) {
        for (const QSize size : {QSize(300, 60), QSize(200, 62)}) {
            WaveformContent content;
            for (int i = 0; i < 60; ++i) {  // the row grows, then moves on
                content.audioLevels.push_back(static_cast<float>(i % 17) / 16);
                if (i == 59)
                    content.barColor = Qt::green;
                const Drawing kept(content, size, 0, scale, &memory);
                EXPECT_EQ(kept.image, Drawing(content, size, 0, scale).image) << scale << ' ' << i;
            }
        }
    }
}

// Stripes in the background where its parts meet between two rows of pixels.
TEST(WaveformPainting, backgroundHasNoSeams) {
    for (const double scale : {1.0, 1.25, 1.5, 1.75, 2.5}) {
        const Drawing drawing(withText(""), {200, 61}, 0, scale);
        const int bottom = static_cast<int>(61 * scale) - 1;
        for (int y = 0; y <= bottom; ++y)
            EXPECT_EQ(drawing.image.pixelColor(100, y), QColor(20, 20, 20)) << scale << ' ' << y;
    }
}

}  // namespace
}  // namespace nulo
