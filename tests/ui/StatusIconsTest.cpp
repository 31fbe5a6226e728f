#include "ui/tray/StatusIcons.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QColor>
#include <QRect>

namespace nulo {
namespace {

QColor pixelOf(const IconPixels& pixels, int x, int y) {
    return QColor::fromRgba(pixels.argb.at(static_cast<std::size_t>(y * pixels.width + x)));
}

bool isRed(const QColor& color) {
    return color.alpha() > 200 && color.red() > 200 && color.green() < 100;
}

/// The box around the pixels that `matches` accepts.
template <typename Matches>
QRect boxOf(const IconPixels& pixels, Matches matches) {
    QRect box;
    for (int y = 0; y < pixels.width; ++y)
        for (int x = 0; x < pixels.width; ++x)
            if (matches(pixelOf(pixels, x, y)))
                box |= QRect(x, y, 1, 1);
    return box;
}

// A bar of the wrong height or place, a picture upside down.
TEST(StatusIcons, followTheirTable) {
    constexpr int scale = 10;
    const IconPixels recording = recordingIcon().draw(18 * scale);
    EXPECT_EQ(boxOf(recording, isRed), QRect(10, 10, 160, 160));
    int x = 20;
    for (const int height : {6, 12, 16, 12, 6}) {
        int inColumn = 0;
        for (int y = 0; y < recording.width; ++y)
            inColumn += isRed(pixelOf(recording, x, y));
        EXPECT_NEAR(inColumn, height * scale, 1) << x;
        x += 35;
    }
    const IconPixels warning = warningIcon().draw(18 * scale);
    const auto isOpaque = [](const QColor& color) { return color.alpha() > 130; };
    EXPECT_EQ(boxOf(warning, isOpaque), QRect(130, 50, 30, 110));  // the stroke and its dot below
    EXPECT_NEAR(pixelOf(warning, 90, 90).alphaF(), 0.4, 0.01);     // the middle bar
    EXPECT_EQ(pixelOf(warning, 90, 50).alpha(), 0);                // which is only 7 high
    EXPECT_EQ(pixelOf(warning, 145, 145), QColor(255, 149, 0));
    EXPECT_EQ(pixelOf(warning, 145, 123).alpha(), 0);
}

// Blurred or uneven bars where whole pixels can be had; no bars where they cannot.
TEST(StatusIcons, areCrispAtPanelSizes) {
    for (const int width : {16, 22, 24, 32, 36, 44, 48, 64, 96, 128}) {
        const IconPixels pixels = recordingIcon().draw(width);
        std::vector<int> gaps;
        int gap = -1;  // from the first bar on
        for (int x = 0; x < width; ++x) {
            const int alpha = pixelOf(pixels, x, width / 2).alpha();
            EXPECT_TRUE(alpha == 0 || alpha == 255) << width << ": " << alpha;
            if (alpha == 0 && gap >= 0)
                ++gap;
            if (alpha == 255 && gap > 0)
                gaps.push_back(gap);
            if (alpha == 255)
                gap = 0;
        }
        EXPECT_EQ(gaps, std::vector(4, gaps.empty() ? 0 : gaps[0])) << width;
    }
    for (const int width : {1, 2, 5, 8, 18, 1024})
        for (const StatusIcon& icon : {idleIcon(), recordingIcon(), warningIcon()}) {
            const IconPixels pixels = icon.draw(width);
            ASSERT_EQ(pixels.argb.size(), static_cast<std::size_t>(width) * width);
            EXPECT_FALSE(boxOf(pixels, [](const QColor& c) { return c.alpha() > 0; }).isEmpty());
        }
}

// An icon that vanishes on a panel of its own colour.
TEST(StatusIcons, idleReadsOnAnyPanel) {
    for (const int width : {16, 22, 24, 48}) {
        const IconPixels pixels = idleIcon().draw(width);
        for (const int panel : {0, 48, 128, 245, 255}) {
            int contrast = 0;
            for (int y = 0; y < width; ++y)
                for (int x = 0; x < width; ++x) {
                    const QColor color = pixelOf(pixels, x, y);
                    const double shown =
                        color.red() * color.alphaF() + panel * (1 - color.alphaF());
                    contrast = std::max(contrast, static_cast<int>(std::abs(shown - panel)));
                }
            EXPECT_GE(contrast, 110) << width << " on " << panel;
        }
    }
}

}  // namespace
}  // namespace nulo
