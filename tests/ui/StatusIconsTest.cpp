#include "ui/tray/StatusIcons.h"

#include <gtest/gtest.h>

namespace nulo {
namespace {

// Blurred or uneven bars where whole pixels can be had, or none at all.
TEST(StatusIcons, areCrispAtPanelSizes) {
    for (const int width : {16, 22, 24, 32, 36, 44, 48, 64, 96, 128}) {
        const IconPixels pixels = recordingIcon().draw(width);
        std::string row;  // across the middle
        for (int x = 0; x < width; ++x) {
            const unsigned alpha = pixels.argb.at(std::size_t(width) * (width / 2) + x) >> 24;
            row += alpha == 0 ? '.' : alpha == 255 ? '#' : '?';
        }
        int bars = 0;
        for (std::size_t at = 0; (at = row.find(".#", at)) != std::string::npos; ++at)
            ++bars;
        EXPECT_EQ(bars, 5) << row;
        EXPECT_EQ(row, std::string(row.rbegin(), row.rend()));
        EXPECT_EQ(row.find('?'), std::string::npos) << row;
    }
}

}  // namespace
}  // namespace nulo
