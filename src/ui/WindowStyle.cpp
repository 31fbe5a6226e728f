#include "ui/WindowStyle.h"

#include <QEvent>
#include <QFont>
#include <QGuiApplication>
#include <QResizeEvent>
#include <algorithm>
#include <cmath>

namespace nulo {
namespace {

// The contrasts that accessibility guidelines ask of texts, and of shapes that say something.
constexpr double readableContrast = 4.5;
constexpr double visibleContrast = 3;

QColor mix(const QColor& from, const QColor& to, double share) {
    const auto blend = [share](int a, int b) {
        return static_cast<int>(std::lround(a + (b - a) * share));
    };
    return {blend(from.red(), to.red()), blend(from.green(), to.green()),
            blend(from.blue(), to.blue())};
}

double luminance(const QColor& color) {
    const auto linear = [](double value) {
        return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) +
           0.0722 * linear(color.blueF());
}

double contrast(const QColor& a, const QColor& b) {
    const auto [dark, light] = std::minmax({luminance(a), luminance(b)});
    return (light + 0.05) / (dark + 0.05);
}

/// `color`, moved away from `other` in small steps until they differ enough: many themes choose a
/// highlight that is a little too pale for text on it, or too dark for a ring on their window.
QColor awayFrom(const QColor& other, QColor color, double enough) {
    const QColor target = luminance(other) > 0.2 ? Qt::black : Qt::white;
    for (int step = 0; step < 40 && contrast(color, other) < enough; ++step)
        color = mix(color, target, 0.06);
    return color;
}

}  // namespace

WindowColors::WindowColors(const QPalette& palette)
    : window(palette.color(QPalette::Active, QPalette::Window)),
      card(palette.color(QPalette::Active, QPalette::Base)),
      text(palette.color(QPalette::Active, QPalette::WindowText)),
      secondaryText(mix(text, window, 0.32)),
      border(mix(window, text, 0.17)),
      fill(mix(card, text, 0.09)),
      hover(mix(card, text, 0.05)),
      raised(luminance(text) > luminance(window) ? mix(window, text, 0.25) : card),
      accentText(palette.color(QPalette::Active, QPalette::HighlightedText)),
      error(awayFrom(fill, QColor::fromHsv(355, 200, 205), readableContrast)) {
    const QColor highlight = palette.color(QPalette::Active, QPalette::Highlight);
    accent = awayFrom(accentText, highlight, readableContrast);
    focus = accent;
    for (const QColor& ground : {window, card, fill, raised})
        focus = awayFrom(ground, focus, visibleContrast);
}

WindowColors windowColors() {
    return WindowColors(QGuiApplication::palette());
}

namespace {

QString styleSheet(const WindowColors& colors) {
    QString sheet = R"(
QScrollArea, QScrollArea > QWidget > QWidget#content { background: transparent; border: none; }
QFrame[card="true"] { background: @card; border: 1px solid @border; border-radius: 10px; }
QFrame[line="true"] { background: @border; border: none; }
QLabel { color: @text; background: transparent; }
QLabel[secondary="true"] { color: @secondary; }
QLabel[error="true"] { color: @error; }
QLineEdit, QPlainTextEdit {
    color: @text; background: @card; border: 1px solid @border; border-radius: 6px;
    selection-background-color: @accent; selection-color: @onAccent;
}
QLineEdit { padding: 5px 8px; }
QPlainTextEdit { padding: 3px 4px; }
QLineEdit:focus, QPlainTextEdit:focus { border: 2px solid @focus; }
QLineEdit:focus { padding: 4px 7px; }
QPlainTextEdit:focus { padding: 2px 3px; }
QLineEdit:disabled { color: @secondary; background: @hover; }
QListView { background: transparent; border: none; outline: none; }
QPushButton {
    color: @text; background: @fill; border: 1px solid @border; border-radius: 6px;
    padding: 6px 16px; min-height: 18px;
}
QPushButton:hover { background: @border; }
QPushButton[prominent="true"] {
    color: @onAccent; background: @accent; border-color: @accent; font-weight: 600;
}
QPushButton[prominent="true"]:hover { background: @accentHover; }
QPushButton[destructive="true"] { color: @error; }
QPushButton:focus { border: 2px solid @focus; padding: 5px 15px; }
QPushButton[prominent="true"]:focus { border: 2px solid @onAccentRing; }
QPushButton:pressed { background: @border; }
QPushButton[prominent="true"]:pressed { background: @accentPressed; }
QScrollBar { background: transparent; border: none; }
QScrollBar:vertical { width: 10px; margin: 2px; }
QScrollBar:horizontal { height: 10px; margin: 2px; }
QScrollBar::handle { background: @scroll; border-radius: 3px; }
QScrollBar::handle:vertical { min-height: 24px; }
QScrollBar::handle:horizontal { min-width: 24px; }
QScrollBar::handle:hover { background: @secondary; }
QScrollBar::add-line, QScrollBar::sub-line { width: 0; height: 0; }
QScrollBar::add-page, QScrollBar::sub-page { background: transparent; }
)";
    // Longer names first, or @accent would eat the beginning of @accentHover.
    const std::pair<const char*, QColor> values[] = {
        {"@accentPressed", mix(colors.accent, Qt::black, 0.25)},
        {"@accentHover", mix(colors.accent, Qt::black, 0.12)},
        {"@secondary", colors.secondaryText},
        {"@onAccentRing",
         contrast(colors.text, colors.accent) < visibleContrast ? colors.accentText : colors.text},
        {"@onAccent", colors.accentText},
        {"@scroll", mix(colors.card, colors.text, 0.3)},
        {"@border", colors.border},
        {"@accent", colors.accent},
        {"@error", colors.error},
        {"@focus", colors.focus},
        {"@hover", colors.hover},
        {"@card", colors.card},
        {"@text", colors.text},
        {"@fill", colors.fill},
    };
    for (const auto& [name, color] : values)
        sheet.replace(name, color.name());
    return sheet;
}

/// Belongs to the window that it dresses.
class Dresser final : public QObject {
  public:
    explicit Dresser(QWidget& window) : QObject(&window), m_window(window) {
        dress();
        window.installEventFilter(this);
    }

    bool eventFilter(QObject*, QEvent* event) override {
        if (event->type() == QEvent::PaletteChange || event->type() == QEvent::ThemeChange)
            dress();
        return false;
    }

  private:
    void dress() {
        const QString sheet = styleSheet(windowColors());
        if (sheet != m_window.styleSheet())  // setting one changes palettes, which leads here again
            m_window.setStyleSheet(sheet);
    }

    QWidget& m_window;
};

/// Tells its height for the width that it has. With a label that leaves it to the layout to ask for
/// every width, nothing around it could shrink below its preferred height.
class WrappedLabel final : public QLabel {
  public:
    using QLabel::QLabel;

    bool hasHeightForWidth() const override { return false; }
    QSize sizeHint() const override { return {QLabel::sizeHint().width(), wrappedHeight()}; }
    QSize minimumSizeHint() const override { return {60, wrappedHeight()}; }

  protected:
    void resizeEvent(QResizeEvent* event) override {
        QLabel::resizeEvent(event);
        if (event->size().width() != event->oldSize().width())
            updateGeometry();
    }

  private:
    int wrappedHeight() const { return heightForWidth(width()); }
};

}  // namespace

void dressWindow(QWidget& window) {
    new Dresser(window);
}

QLabel* makeTitle(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 1.2);
    font.setWeight(QFont::DemiBold);
    label->setFont(font);
    return label;
}

QLabel* makeSecondaryLabel(const QString& text, QWidget* parent) {
    auto* label = new WrappedLabel(text, parent);
    label->setProperty("secondary", true);
    label->setWordWrap(true);
    return label;
}

QFrame* makeCard(QWidget* parent) {
    auto* card = new QFrame(parent);
    card->setProperty("card", true);
    return card;
}

QFrame* makeLine(Qt::Orientation orientation, QWidget* parent) {
    auto* line = new QFrame(parent);
    line->setProperty("line", true);
    if (orientation == Qt::Horizontal)
        line->setFixedHeight(1);
    else
        line->setFixedWidth(1);
    return line;
}

}  // namespace nulo
