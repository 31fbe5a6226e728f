#include "ui/settings/PasteableTextField.h"

#include <gtest/gtest.h>

#include <QClipboard>
#include <QGuiApplication>
#include <QTest>

#include "ui/OneLine.h"

namespace nulo {
namespace {

// An editing key that does nothing, a line break in a word, a secret that other programs can read.
TEST(PasteableTextField, editsByItsKeysButGivesNoSecretAway) {
    QClipboard& clipboard = *QGuiApplication::clipboard();
    for (const bool isPlain : {true, false}) {
        PasteableTextField field(
            isPlain ? PasteableTextField::Kind::plain : PasteableTextField::Kind::secure, "...",
            nullptr);
        const auto press = [&](Qt::Key key) {
            QTest::keyClick(&field.field(), key, Qt::ControlModifier);
        };
        QString heard;
        field.onTextChanged = [&](const QString& text) { heard = text; };
        clipboard.setText("x\r\ny");
        press(Qt::Key_V);
        EXPECT_EQ(heard, "x y");
        EXPECT_EQ(field.field().displayText().contains("x"), isPlain);
        for (const Qt::Key key : {Qt::Key_C, Qt::Key_X}) {
            clipboard.setText("other");
            press(Qt::Key_A);
            press(key);
            EXPECT_EQ(clipboard.text() == "other", !isPlain);
        }
        EXPECT_EQ(field.text(), isPlain ? "" : "x y");
    }
}

// A character cut in two, or a line break that gets into one line.
TEST(OneLine, cutsBetweenCharacters) {
    EXPECT_EQ(oneLine("a\r\n\tb\u2028c"), "a   b c");
    EXPECT_EQ(oneLine("\U0001F469\U0001F469", 3), QString("\U0001F469\u2026"));
}

}  // namespace
}  // namespace nulo
