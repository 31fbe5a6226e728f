#include "ui/overlay/StreamingTextLayout.h"

#include <gtest/gtest.h>

#include <QImage>
#include <random>

namespace nulo {
namespace {

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
