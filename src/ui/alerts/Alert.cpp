#include "ui/alerts/Alert.h"

#include <QApplication>
#include <QDialog>
#include <QFontInfo>
#include <QHBoxLayout>
#include <QPushButton>
#include <QScrollBar>
#include <QTextDocument>
#include <QTextEdit>
#include <QVBoxLayout>
#include <QWindow>
#include <algorithm>
#include <memory>
#include <utility>

#include "ui/WindowPlace.h"
#include "ui/WindowStyle.h"
#include "ui/alerts/AlertSign.h"
#include "ui/alerts/KeyGuard.h"

namespace nulo {
namespace {

constexpr int textWidth = 400;
constexpr int margin = 20;
/// The share of the screen's height that the two texts may take together; the rest is for what is
/// around them.
constexpr double largestShareOfScreen = 0.6;
/// The longest texts in UTF-16 units: a longer one would take seconds to lay out, and no person
/// reads it.
constexpr qsizetype longestMessage = 300;
constexpr qsizetype longestInformativeText = 16 * 1024;

QString shownText(const std::string& utf8, qsizetype longest) {
    QString text = QString::fromStdString(utf8);
    if (text.size() > longest)
        text = text.left(longest) + QStringLiteral("…");
    return text;
}

/// Text that looks like a label, wraps within words too, and scrolls when it is long.
class TextBlock final : public QTextEdit {
  public:
    TextBlock(const QString& text, const QFont& font, int largestHeight) {
        setReadOnly(true);
        setFont(font);
        setPlainText(text);
        setAccessibleName(text);
        setFrameShape(QFrame::NoFrame);
        setTabChangesFocus(true);
        setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
        setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        QPalette colours = palette();
        colours.setColor(QPalette::Base, colours.color(QPalette::Window));
        colours.setColor(QPalette::Text, colours.color(QPalette::WindowText));
        setPalette(colours);
        viewport()->setCursor(Qt::IBeamCursor);
        document()->setDocumentMargin(0);
        const int height = heightOf(*document());
        const bool scrolls = height > largestHeight;
        setVerticalScrollBarPolicy(scrolls ? Qt::ScrollBarAlwaysOn : Qt::ScrollBarAlwaysOff);
        // A text that scrolls must be reachable without a mouse; one that does not would only be a
        // stop on the way of the Tab key.
        setFocusPolicy(scrolls ? Qt::StrongFocus : Qt::ClickFocus);
        setFixedSize(textWidth + (scrolls ? verticalScrollBar()->sizeHint().width() : 0),
                     std::min(height, largestHeight));
    }

  private:
    /// A copy is measured: the editor's own follows the size that the editor has at the moment.
    static int heightOf(const QTextDocument& document) {
        const std::unique_ptr<QTextDocument> copy(document.clone());
        copy->setTextWidth(textWidth);
        return qRound(copy->size().height() + 0.5);
    }
};

class AlertWindow final : public QDialog {
  public:
    /// `owner` is the window that the alert is shown over, null for none. `screenHeight` is in
    /// points.
    AlertWindow(QWidget* owner, const AlertContent& content, const Clock& clock, int screenHeight,
                std::function<void(std::size_t)> onAnswer)
        : QDialog(owner, Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                             Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint),
          m_keys(clock),
          m_onAnswer(std::move(onAnswer)),
          m_last(content.buttons.size() - 1) {
        const QString message = shownText(content.message, longestMessage);
        setWindowTitle(owner ? message : QStringLiteral("Nulo"));
        setWindowFlag(Qt::WindowStaysOnTopHint, !owner);
        const QString informativeText = shownText(content.informativeText, longestInformativeText);
        setAccessibleName(message);
        setAccessibleDescription(informativeText);
        auto* rows = new QVBoxLayout(this);
        rows->setContentsMargins(margin, margin, margin, margin);
        rows->setSpacing(margin);
        rows->setSizeConstraint(QLayout::SetFixedSize);
        rows->addLayout(
            texts(content.style, message, informativeText, screenHeight * largestShareOfScreen));
        rows->addLayout(buttons(content));
        m_default->setDefault(true);
        m_default->setProperty("prominent", !content.destructiveButton);
        dressWindow(*this);
        m_default->setFocus();
    }

    void reject() override { answer(m_last); }

  protected:
    void showEvent(QShowEvent* event) override {
        QDialog::showEvent(event);
        if (!parentWidget())
            windowHandle()->installEventFilter(&m_keys);
        m_keys.begin();
    }
    bool event(QEvent* event) override {
        if (event->type() == QEvent::WindowActivate)
            m_keys.begin();
        return QDialog::event(event);
    }

  private:
    QLayout* texts(AlertContent::Style alertStyle, const QString& messageText,
                   const QString& informativeText, double height) {
        QFont bold = font();
        bold.setBold(true);
        bold.setPointSizeF(QFontInfo(bold).pointSizeF() * 1.15);
        auto* column = new QVBoxLayout;
        column->setSpacing(margin / 2);
        auto* message = new TextBlock(messageText, bold, int(height / 3));
        column->addWidget(message);
        if (!informativeText.isEmpty())
            column->addWidget(
                new TextBlock(informativeText, font(), int(height - message->height())));
        column->addStretch();
        auto* row = new QHBoxLayout;
        row->setSpacing(margin);
        row->addWidget(new AlertSign(alertStyle), 0, Qt::AlignTop);
        row->addLayout(column);
        row->addStretch();  // where the buttons need more width than the texts
        return row;
    }

    QLayout* buttons(const AlertContent& content) {
        auto* row = new QHBoxLayout;
        row->setSpacing(8);
        row->addStretch();
        for (std::size_t i = 0; i < content.buttons.size(); ++i) {
            // A '&' would be a mnemonic.
            auto* button = new QPushButton(
                QString::fromStdString(content.buttons[i]).replace('&', QLatin1String("&&")));
            button->setAccessibleName(QString::fromStdString(content.buttons[i]));
            connect(button, &QPushButton::clicked, this, [this, i] { answer(i); });
            row->addWidget(button);
            if (i == content.defaultButton)
                m_default = button;
            if (i == content.destructiveButton) {
                button->setProperty("destructive", true);
                button->setAutoDefault(false);
            }
        }
        return row;
    }

    void answer(std::size_t button) {
        const auto onAnswer = std::exchange(m_onAnswer, nullptr);
        hide();
        deleteLater();
        if (onAnswer)
            onAnswer(button);
    }

    KeyGuard m_keys;
    std::function<void(std::size_t)> m_onAnswer;  // empty once it was called
    const std::size_t m_last;
    QPushButton* m_default = nullptr;
};

}  // namespace

Alerts::Alerts(const Clock& clock, std::function<QRect()> visibleFrame)
    : m_clock(clock), m_visibleFrame(std::move(visibleFrame)) {}

QPointer<QWidget> Alerts::show(AlertContent content,
                               std::function<void(std::size_t button)> onAnswer) const {
    if (content.buttons.empty())
        content.buttons.emplace_back("OK");
    auto* window =
        new AlertWindow(nullptr, content, m_clock, m_visibleFrame().height(), std::move(onAnswer));
    QObject::connect(qApp, &QCoreApplication::aboutToQuit, window, [window] { delete window; });
    showInFront(*window);
    return window;
}

void Alerts::showOver(QWidget& window, AlertContent content,
                      std::function<void(std::size_t button)> onAnswer) const {
    (new AlertWindow(&window, content, m_clock, m_visibleFrame().height(), std::move(onAnswer)))
        ->open();
}

void Alerts::showInFront(QWidget& window) const {
    if (!window.isVisible()) {
        window.adjustSize();
        placeInMiddle(window, m_visibleFrame());
    }
    bringToFront(window);
}

}  // namespace nulo
