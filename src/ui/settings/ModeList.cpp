#include "ui/settings/ModeList.h"

#include <QAbstractListModel>
#include <QPainter>
#include <QScrollBar>
#include <QStyle>
#include <algorithm>
#include <cmath>

#include "ui/OneLine.h"
#include "ui/WindowStyle.h"

namespace nulo {
namespace {

constexpr int rowMargin = 6;
constexpr int textMargin = 8;
constexpr int rowPadding = 6;  // above and below its name
// The least and the most width of the list, in heights of a line.
constexpr int narrowest = 6;
constexpr int widest = 13;
constexpr int rowsInSight = 5;
constexpr int builtInRole = Qt::UserRole;
const QString builtInMark = QStringLiteral("inclus");

}  // namespace

class ModeListModel final : public QAbstractListModel {
  public:
    ModeListModel(SettingsModel& model, QObject* parent)
        : QAbstractListModel(parent), m_model(model) {}

    int rowCount(const QModelIndex& parent = {}) const override {
        return parent.isValid() ? 0 : static_cast<int>(m_model.modes().size());
    }
    QVariant data(const QModelIndex& index, int role) const override {
        const PromptMode& mode = m_model.modes()[static_cast<std::size_t>(index.row())];
        if (role == Qt::DisplayRole)
            return oneLine(mode.name);
        if (role == Qt::ToolTipRole)
            return oneLine(mode.name).toHtmlEscaped();
        if (role == Qt::AccessibleTextRole)
            return mode.isBuiltIn ? oneLine(mode.name) + ", " + builtInMark : oneLine(mode.name);
        if (role == builtInRole)
            return mode.isBuiltIn;
        return {};
    }

    void addMode() {
        beginInsertRows({}, rowCount(), rowCount());
        m_model.addMode();
        endInsertRows();
    }
    void deleteSelectedMode() {
        if (!m_model.canDeleteSelectedMode())
            return;
        const int row = static_cast<int>(*m_model.selectedRow());
        beginRemoveRows({}, row, row);
        m_model.deleteSelectedMode();
        endRemoveRows();
    }
    void refresh(int row) { emit dataChanged(index(row), index(row)); }

  private:
    SettingsModel& m_model;
};

namespace {

class ModeRowPainter final : public ItemPainter {
  public:
    using ItemPainter::ItemPainter;

    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const override {
        return {1, option.fontMetrics.height() + 2 * rowPadding};  // rows are as wide as the list
    }

    int wantedWidth(const QStyleOptionViewItem& option, const QModelIndex& index) const override {
        const QFontMetricsF exact(option.font);  // the rounded ones may be a fraction too small
        return widthBesideName(option, index) +
               static_cast<int>(std::ceil(exact.horizontalAdvance(index.data().toString())));
    }

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override {
        const WindowColors colors = windowColors();
        const bool isSelected = option.state & QStyle::State_Selected;
        const bool isFocused = option.state & QStyle::State_HasFocus;
        const bool isHovered = option.state & QStyle::State_MouseOver;
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        const QRect row = option.rect.adjusted(rowMargin, 1, -rowMargin, -1);
        painter->setPen(isSelected && isFocused ? QPen(colors.focus, 2) : QPen(Qt::NoPen));
        if (isSelected)
            painter->setBrush(isFocused ? colors.accent : colors.border);
        else if (isHovered)
            painter->setBrush(colors.fill);
        painter->drawRoundedRect(row, 6, 6);

        QRect textRect = row.adjusted(textMargin, 0, -textMargin, 0);
        const bool isOnAccent = isSelected && isFocused;
        if (index.data(builtInRole).toBool()) {
            painter->setFont(markFont(option));
            painter->setPen(isOnAccent ? colors.accentText : colors.secondaryText);
            painter->drawText(textRect, Qt::AlignTrailing | Qt::AlignVCenter, builtInMark);
        }
        textRect = QStyle::alignedRect(
            option.direction, Qt::AlignLeading,
            {option.rect.width() - widthBesideName(option, index), row.height()}, textRect);
        painter->setFont(option.font);
        painter->setPen(isOnAccent ? colors.accentText : colors.text);
        const QString name = index.data().toString();
        painter->setLayoutDirection(name.isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight);
        painter->drawText(
            textRect,
            static_cast<int>(QStyle::visualAlignment(option.direction, Qt::AlignLeft)) |
                Qt::AlignAbsolute | Qt::AlignVCenter | Qt::TextSingleLine,
            option.fontMetrics.elidedText(name, Qt::ElideRight, textRect.width()));
        painter->restore();
    }

  private:
    static QFont markFont(const QStyleOptionViewItem& option) {
        QFont small = option.font;
        small.setPointSizeF(small.pointSizeF() * 0.85);
        return small;
    }
    /// The width that a row needs besides its name.
    static int widthBesideName(const QStyleOptionViewItem& option, const QModelIndex& index) {
        const int margins = 2 * (rowMargin + textMargin);
        if (!index.data(builtInRole).toBool())
            return margins;
        return margins + textMargin + QFontMetrics(markFont(option)).horizontalAdvance(builtInMark);
    }
};

}  // namespace

ModeList::ModeList(SettingsModel& model, QWidget* parent)
    : PaintedList("Modes", parent),
      m_model(model),
      m_rows(new ModeListModel(model, this)),
      m_painter(new ModeRowPainter(this)) {
    setUniformItemSizes(true);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setItemDelegate(m_painter);
    setModel(m_rows);
    selectRow();
    connect(selectionModel(), &QItemSelectionModel::currentRowChanged, this,
            [this](const QModelIndex& current) {
                if (m_isChangingRows || !current.isValid())
                    return;
                m_model.selectMode(static_cast<std::size_t>(current.row()));
                if (const auto selected = onSelected)
                    selected();
            });
}

QSize ModeList::sizeHint() const {
    const int most = widest * fontMetrics().height();
    QStyleOptionViewItem option;
    initViewItemOption(&option);
    int wanted = 0;
    for (int row = 0; row < m_rows->rowCount() && wanted < most; ++row)
        wanted = std::max(wanted, m_painter->wantedWidth(option, m_rows->index(row)));
    if (m_rows->rowCount() > rowsInSight)
        wanted += verticalScrollBar()->sizeHint().width();
    return {std::min(wanted, most), rowsInSight * (fontMetrics().height() + 2 * rowPadding)};
}

QSize ModeList::minimumSizeHint() const {
    const QSize wanted = sizeHint();
    return {std::min(wanted.width(), narrowest * fontMetrics().height()), wanted.height()};
}

void ModeList::addMode() {
    m_isChangingRows = true;
    m_rows->addMode();
    m_isChangingRows = false;
    selectRow();
}

void ModeList::deleteSelectedMode() {
    m_isChangingRows = true;
    m_rows->deleteSelectedMode();
    m_isChangingRows = false;
    selectRow();
}

void ModeList::refreshSelectedRow() {
    if (const auto row = m_model.selectedRow())
        m_rows->refresh(static_cast<int>(*row));
}

QItemSelectionModel::SelectionFlags ModeList::selectionCommand(const QModelIndex& index,
                                                               const QEvent*) const {
    // With Ctrl held a click would take the mark from the row that the editor shows.
    return index.isValid() ? QItemSelectionModel::ClearAndSelect : QItemSelectionModel::NoUpdate;
}

void ModeList::selectRow() {
    const auto row = m_model.selectedRow();
    m_isChangingRows = true;
    setCurrentIndex(row ? m_rows->index(static_cast<int>(*row)) : QModelIndex());
    m_isChangingRows = false;
    if (const auto selected = onSelected)
        selected();
}

}  // namespace nulo
