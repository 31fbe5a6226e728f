#include "ui/settings/PasteableTextField.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QSignalBlocker>
#include <limits>

namespace nulo {
namespace {

QString withoutLineBreaks(QString text) {
    text.replace("\r\n", " ");
    for (QChar& character : text)
        if ((character >= u'\n' && character <= u'\r') || character == u'\u0085' ||
            character == QChar::LineSeparator || character == QChar::ParagraphSeparator)
            character = u' ';
    return text;
}

/// The key that Ctrl is held with; 0 when it is not, or when Shift makes another character of it.
int commandKey(const QKeyEvent& event) {
    const bool isCommand =
        event.modifiers() & Qt::ControlModifier && !(event.modifiers() & Qt::ShiftModifier);
    return isCommand ? event.key() : 0;
}

}  // namespace

void EditableNSTextField::keyPressEvent(QKeyEvent* event) {
    switch (commandKey(*event)) {
        case Qt::Key_V:
            return paste();
        case Qt::Key_C:
            return copy();
        case Qt::Key_X:
            return cut();
        case Qt::Key_A:
            return selectAll();
        default:
            QLineEdit::keyPressEvent(event);
    }
}

EditableNSSecureTextField::EditableNSSecureTextField(QWidget* parent) : QLineEdit(parent) {
    setEchoMode(QLineEdit::Password);
}

void EditableNSSecureTextField::keyPressEvent(QKeyEvent* event) {
    if (event->matches(QKeySequence::Copy) || event->matches(QKeySequence::Cut))
        return event->ignore();  // left to the line edit, a cut would delete the text
    switch (commandKey(*event)) {
        case Qt::Key_V:
            return paste();
        case Qt::Key_A:
            return selectAll();
        default:
            QLineEdit::keyPressEvent(event);
    }
}

PasteableTextField::PasteableTextField(Kind kind, const QString& placeholder, QWidget* parent)
    : QWidget(parent) {
    if (kind == Kind::plain)
        m_field = new EditableNSTextField(this);
    else
        m_field = new EditableNSSecureTextField(this);
    m_field->setPlaceholderText(placeholder);
    // The default limit would cut a long name short, and the cut one would be saved.
    m_field->setMaxLength(std::numeric_limits<int>::max());
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_field);
    setFocusProxy(m_field);
    connect(m_field, &QLineEdit::textChanged, this, [this] {
        if (const auto changed = onTextChanged)
            changed(text());
    });
    connect(m_field, &QLineEdit::returnPressed, this, [this] {
        if (const auto submit = onSubmit)
            submit();
    });
}

QString PasteableTextField::text() const {
    return withoutLineBreaks(m_field->text());
}

void PasteableTextField::setText(const QString& text) {
    const QSignalBlocker blocker(m_field);
    m_field->setText(text);
    m_field->setCursorPosition(0);
}

}  // namespace nulo
