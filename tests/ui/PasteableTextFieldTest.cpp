#include "ui/settings/PasteableTextField.h"

#include <gtest/gtest.h>

#include <QClipboard>
#include <QGuiApplication>
#include <QTest>

#include "ui/tray/OneLine.h"

namespace nulo {
namespace {

class PasteableTextFieldTest : public testing::Test {
  protected:
    void press(PasteableTextField& field, Qt::Key key) {
        QTest::keyClick(&field.field(), key, Qt::ControlModifier);
    }
    QClipboard& clipboard() { return *QGuiApplication::clipboard(); }
};

// An editing key that does nothing, or the text and its binding out of step.
TEST_F(PasteableTextFieldTest, editsByItsKeys) {
    PasteableTextField field(PasteableTextField::Kind::plain, "...", nullptr);
    QStringList heard;
    field.onTextChanged = [&](const QString& text) { heard.append(text); };
    field.setText("abc");
    EXPECT_TRUE(heard.isEmpty());
    press(field, Qt::Key_A);
    press(field, Qt::Key_C);
    EXPECT_EQ(clipboard().text(), "abc");
    clipboard().setText("x\r\ny");
    press(field, Qt::Key_V);
    EXPECT_EQ(field.text(), "x y") << "a line break in a word";
    press(field, Qt::Key_A);
    press(field, Qt::Key_X);
    EXPECT_EQ(field.text(), "");
    EXPECT_EQ(clipboard().text(), "x\r\ny");
    press(field, Qt::Key_Z);  // any other key is the field's own
    EXPECT_EQ(heard.last(), "x y");
    EXPECT_EQ(field.text(), heard.last());
}

// A secret on the clipboard, where every program can read it.
TEST_F(PasteableTextFieldTest, aSecretCanBePastedButNotTakenOut) {
    PasteableTextField field(PasteableTextField::Kind::secure, "...", nullptr);
    clipboard().setText("secret");
    press(field, Qt::Key_V);
    EXPECT_EQ(field.text(), "secret");
    EXPECT_FALSE(field.field().displayText().contains("secret"));
    clipboard().setText("other");
    press(field, Qt::Key_A);
    EXPECT_TRUE(field.field().hasSelectedText());
    press(field, Qt::Key_C);
    press(field, Qt::Key_X);
    EXPECT_EQ(field.text(), "secret");
    EXPECT_EQ(clipboard().text(), "other");
}

// A character cut in two, or a line break that gets into one line.
TEST(OneLine, cutsBetweenCharacters) {
    EXPECT_EQ(oneLine("a\r\n\tb\u2028c"), "a   b c");
    EXPECT_EQ(oneLine("\U0001F469\U0001F469", 4), QString("\U0001F469\U0001F469"));
    EXPECT_EQ(oneLine("\U0001F469\U0001F469", 3), QString("\U0001F469\u2026"));
    std::string women;
    for (int i = 0; i < 100; ++i)
        women += "\U0001F469";
    EXPECT_FALSE(oneLine(women, 9).contains(QChar::ReplacementCharacter));
}

}  // namespace
}  // namespace nulo
