// A text window as another program would show it: what it holds and the keys it saw can be read
// from files, so that a test or the demonstration sees what a user would see.
//
//   nulo-text-window [--title TITLE] [--class NAME] [--file PATH] [--keys PATH]
//
// --class sets both names of WM_CLASS. --file is replaced whole with the window's text when the
// window gets the focus for the first time and at every change. --keys gets a line per key event,
// such as "press Ctrl+V" or "release Control".

#include <QApplication>
#include <QCommandLineParser>
#include <QFile>
#include <QFocusEvent>
#include <QKeyEvent>
#include <QKeySequence>
#include <QPlainTextEdit>
#include <QSaveFile>
#include <utility>
#include <vector>

namespace {

class TextWindow final : public QPlainTextEdit {
  public:
    TextWindow(const QString& textPath, const QString& keysPath)
        : m_textPath(textPath), m_keys(keysPath) {
        if (!keysPath.isEmpty() && !m_keys.open(QIODevice::WriteOnly | QIODevice::Append))
            qFatal("cannot write %s", qPrintable(keysPath));
        connect(this, &QPlainTextEdit::textChanged, this, [this] { writeText(); });
    }

  protected:
    void focusInEvent(QFocusEvent* event) override {
        QPlainTextEdit::focusInEvent(event);
        if (!std::exchange(m_hadFocus, true))
            writeText();
    }
    void keyPressEvent(QKeyEvent* event) override {
        writeKey(event->isAutoRepeat() ? "repeat" : "press", *event);
        QPlainTextEdit::keyPressEvent(event);
    }
    void keyReleaseEvent(QKeyEvent* event) override {
        if (!event->isAutoRepeat())
            writeKey("release", *event);
        QPlainTextEdit::keyReleaseEvent(event);
    }

  private:
    void writeText() {
        if (m_textPath.isEmpty())
            return;
        QSaveFile file(m_textPath);
        if (!file.open(QIODevice::WriteOnly) || file.write(toPlainText().toUtf8()) < 0 ||
            !file.commit())
            qFatal("cannot write %s", qPrintable(m_textPath));
    }

    void writeKey(const char* what, const QKeyEvent& event) {
        if (!m_keys.isOpen())
            return;
        const bool isModifier = event.key() == Qt::Key_Control || event.key() == Qt::Key_Shift ||
                                event.key() == Qt::Key_Alt || event.key() == Qt::Key_Meta ||
                                event.key() == Qt::Key_AltGr;
        const auto modifiers = isModifier ? Qt::KeyboardModifiers{} : event.modifiers();
        const QKeySequence keys(
            QKeyCombination(modifiers & ~Qt::KeypadModifier, static_cast<Qt::Key>(event.key())));
        m_keys.write(what + QByteArray(" ") + keys.toString(QKeySequence::PortableText).toUtf8() +
                     '\n');
        m_keys.flush();
    }

    const QString m_textPath;
    QFile m_keys;
    bool m_hadFocus = false;
};

}  // namespace

int main(int argc, char** argv) {
    // The first name of WM_CLASS can only be given to Qt as an argument of its own.
    std::vector<char*> arguments(argv, argv + argc);
    char nameOption[] = "-name";
    for (int i = 1; i + 1 < argc; ++i)
        if (QByteArray(argv[i]) == "--class")
            arguments.insert(arguments.end(), {nameOption, argv[i + 1]});
    int count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    QApplication application(count, arguments.data());

    QCommandLineParser parser;
    parser.addOptions({{"title", "", "TITLE", "Text"},
                       {"class", "", "NAME", "nulo-text-window"},
                       {"file", "", "PATH"},
                       {"keys", "", "PATH"}});
    parser.process(application);
    QCoreApplication::setApplicationName(parser.value("class"));

    TextWindow window(parser.value("file"), parser.value("keys"));
    window.setWindowTitle(parser.value("title"));
    window.resize(640, 320);
    window.show();
    window.activateWindow();
    window.setFocus();
    return QApplication::exec();
}
