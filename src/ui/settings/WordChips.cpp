#include "ui/settings/WordChips.h"

#include <QAbstractListModel>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <algorithm>
#include <utility>

#include "ui/OneLine.h"
#include "ui/WindowStyle.h"
#include "ui/settings/Symbols.h"

namespace nulo {
namespace {

constexpr double leastRows = 1.5;     // the beginning of one more row tells that there are more
constexpr int chipPadding = 5;        // above and below its text
constexpr int longestToolTip = 1000;  // characters
constexpr int textMargin = 10;
constexpr int buttonSide = 14;
constexpr int buttonMargin = 7;

QRect buttonRect(const QRect& chip) {
    return {chip.right() - buttonMargin - buttonSide + 1, chip.center().y() - buttonSide / 2 + 1,
            buttonSide, buttonSide};
}

}  // namespace

class WordChipsModel final : public QAbstractListModel {
  public:
    WordChipsModel(const std::vector<std::string>& words, QObject* parent)
        : QAbstractListModel(parent) {
        m_chips.reserve(words.size());
        for (const std::string& word : words)
            m_chips.push_back({QString::fromStdString(word), oneLine(word)});
    }

    int rowCount(const QModelIndex& parent = {}) const override {
        return parent.isValid() ? 0 : static_cast<int>(m_chips.size());
    }
    QVariant data(const QModelIndex& index, int role) const override {
        const Chip& chip = m_chips[static_cast<std::size_t>(index.row())];
        if (role == Qt::DisplayRole)
            return chip.shown;
        if (role == Qt::AccessibleTextRole)
            return chip.word;
        if (role == Qt::ToolTipRole)
            return oneLine(chip.word.toStdString(), longestToolTip).toHtmlEscaped();
        return {};
    }

    /// Keeps each width, because every layout asks for all of them.
    int textWidth(int row, const QFontMetrics& metrics) const {
        const Chip& chip = m_chips[static_cast<std::size_t>(row)];
        if (chip.width < 0)
            chip.width = metrics.horizontalAdvance(chip.shown);
        return chip.width;
    }
    void forgetWidths() {
        for (const Chip& chip : m_chips)
            chip.width = -1;
    }

    void append(const std::string& word) {
        beginInsertRows({}, rowCount(), rowCount());
        m_chips.push_back({QString::fromStdString(word), oneLine(word)});
        endInsertRows();
    }
    void remove(int row) {
        beginRemoveRows({}, row, row);
        m_chips.erase(m_chips.begin() + row);
        endRemoveRows();
    }

  private:
    struct Chip {
        QString word;
        QString shown;
        mutable int width = -1;
    };
    std::vector<Chip> m_chips;
};

namespace {

class ChipPainter final : public ItemPainter {
  public:
    ChipPainter(const WordChipsModel& model, const QListView& view, QObject* parent)
        : ItemPainter(parent), m_model(model), m_view(view) {}

    int wantedWidth(const QStyleOptionViewItem& option, const QModelIndex& index) const override {
        return m_model.textWidth(index.row(), option.fontMetrics) + textMargin + buttonSide +
               2 * buttonMargin;
    }

    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override {
        const int widest = m_view.viewport()->width() - 2 * WordChips::chipMargin;
        return {std::min(wantedWidth(option, index), std::max(widest, 60)),
                option.fontMetrics.height() + 2 * chipPadding};
    }

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override {
        const WindowColors colors = windowColors();
        const bool isFocused = option.state & QStyle::State_HasFocus;
        const bool isHovered = option.state & QStyle::State_MouseOver;
        const QRectF shape = QRectF(option.rect).adjusted(1, 1, -1, -1);
        const QRect button = buttonRect(option.rect);
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        painter->setPen(isFocused ? QPen(colors.focus, 2) : QPen(Qt::NoPen));
        painter->setBrush(colors.fill);
        painter->drawRoundedRect(shape, shape.height() / 2, shape.height() / 2);

        const QRect textRect(option.rect.left() + textMargin, option.rect.top(),
                             button.left() - buttonMargin + 2 - option.rect.left() - textMargin,
                             option.rect.height());
        const QString text = option.fontMetrics.elidedText(index.data().toString(), Qt::ElideRight,
                                                           textRect.width());
        painter->setPen(colors.text);
        painter->setLayoutDirection(text.isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight);
        painter->drawText(textRect, Qt::AlignLeading | Qt::AlignVCenter | Qt::TextSingleLine, text);

        painter->setPen(Qt::NoPen);
        painter->setBrush(isHovered || isFocused ? colors.text : colors.secondaryText);
        painter->drawPath(symbolPath(Symbol::xmarkCircleFill, button));
        painter->restore();
    }

  private:
    const WordChipsModel& m_model;
    const QListView& m_view;
};

}  // namespace

WordChips::WordChips(const std::vector<std::string>& words, QWidget* parent)
    : PaintedList("Dictionnaire", parent), m_model(new WordChipsModel(words, this)) {
    setFlow(QListView::LeftToRight);
    setWrapping(true);
    setResizeMode(QListView::Adjust);
    setSpacing(chipMargin);
    setSelectionMode(QAbstractItemView::NoSelection);
    setAccessibleDescription("Suppr retire le mot choisi");
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Maximum);
    setItemDelegate(new ChipPainter(*m_model, *this, this));
    setModel(m_model);
}

void WordChips::appendWord(const std::string& word) {
    m_model->append(word);
    scrollToBottom();
}

void WordChips::removeRow(int row) {
    m_model->remove(row);
}

QRect WordChips::removeButtonRect(int row) const {
    return buttonRect(visualRect(m_model->index(row)));
}

void WordChips::setMostHeight(int height) {
    m_mostHeight = height;
    updateGeometry();
}

QSize WordChips::sizeHint() const {
    const QSize least = minimumSizeHint();
    const int most = std::max(m_mostHeight, least.height());
    return {least.width(), std::clamp(contentsSize().height(), 1, most)};
}

QSize WordChips::minimumSizeHint() const {
    const int row = fontMetrics().height() + 2 * chipPadding + 2 * chipMargin;
    const int least = static_cast<int>(leastRows * row);
    return {60, std::clamp(contentsSize().height(), 1, least)};
}

void WordChips::doItemsLayout() {
    QListView::doItemsLayout();
    updateGeometry();
}

void WordChips::keyPressEvent(QKeyEvent* event) {
    const bool removes = event->key() == Qt::Key_Delete || event->key() == Qt::Key_Backspace;
    if (removes && currentIndex().isValid())
        requestRemoval(currentIndex().row());
    else
        QListView::keyPressEvent(event);
}

void WordChips::mousePressEvent(QMouseEvent* event) {
    const bool isLeft = event->button() == Qt::LeftButton;
    m_pressedRow = isLeft ? removeButtonRowAt(event->position().toPoint()) : -1;
    if (m_pressedRow < 0)
        QListView::mousePressEvent(event);
}

void WordChips::mouseMoveEvent(QMouseEvent* event) {
    const bool isOnButton = removeButtonRowAt(event->position().toPoint()) >= 0;
    viewport()->setCursor(isOnButton ? Qt::PointingHandCursor : Qt::ArrowCursor);
    QListView::mouseMoveEvent(event);
}

void WordChips::mouseReleaseEvent(QMouseEvent* event) {
    const int row = std::exchange(m_pressedRow, -1);
    if (row >= 0 && row == removeButtonRowAt(event->position().toPoint()))
        requestRemoval(row);
    else
        QListView::mouseReleaseEvent(event);
}

void WordChips::focusInEvent(QFocusEvent* event) {
    if (!currentIndex().isValid())
        setCurrentIndex(m_model->index(0));
    QListView::focusInEvent(event);
}

void WordChips::resizeEvent(QResizeEvent* event) {
    QListView::resizeEvent(event);
    // The delayed layout would first show the chips at their old places, and a wrong height.
    if (event->size().width() != event->oldSize().width())
        doItemsLayout();
}

void WordChips::changeEvent(QEvent* event) {
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange)
        m_model->forgetWidths();
    QListView::changeEvent(event);
}

int WordChips::removeButtonRowAt(const QPoint& position) const {
    const QModelIndex index = indexAt(position);
    const QMargins reach(buttonMargin, buttonMargin, buttonMargin, buttonMargin);
    const bool isInside =
        index.isValid() && buttonRect(visualRect(index)).marginsAdded(reach).contains(position);
    return isInside ? index.row() : -1;
}

void WordChips::requestRemoval(int row) {
    if (const auto remove = onRemove)
        remove(row);
}

}  // namespace nulo
