#pragma once

#include <QLineEdit>
#include <QString>
#include <QWidget>
#include <functional>

namespace nulo {

/// A line of text with the editing keys Ctrl+V, Ctrl+C, Ctrl+X and Ctrl+A of its own: a program
/// without a main menu has no edit actions that would bring them.
class EditableNSTextField final : public QLineEdit {
  public:
    using QLineEdit::QLineEdit;

  protected:
    void keyPressEvent(QKeyEvent* event) override;
};

/// A line of text for secrets, which is hidden: it can be pasted but neither copied nor cut.
class EditableNSSecureTextField final : public QLineEdit {
  public:
    explicit EditableNSSecureTextField(QWidget* parent = nullptr);

  protected:
    void keyPressEvent(QKeyEvent* event) override;
};

/// A text field that keeps a string in step with what it shows, in both directions. It
/// shows line breaks that are pasted as spaces, and hands them on as spaces. It passes the keyboard
/// focus, and its accessible name, on to the field in it. Main thread.
class PasteableTextField final : public QWidget {
  public:
    enum class Kind { plain, secure };

    PasteableTextField(Kind kind, const QString& placeholder, QWidget* parent);

    QString text() const;
    /// Does not call onTextChanged.
    void setText(const QString& text);
    /// Any change of the text but those by setText().
    std::function<void(const QString& text)> onTextChanged;
    /// The Return key.
    std::function<void()> onSubmit;

    QLineEdit& field() { return *m_field; }

  private:
    QLineEdit* m_field;
};

}  // namespace nulo
