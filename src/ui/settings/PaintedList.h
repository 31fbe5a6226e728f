#pragma once

#include <QListView>
#include <QString>
#include <QStyledItemDelegate>

namespace nulo {

/// A list whose items are painted rather than widgets, so that thousands of them cost nothing, and
/// stand on whatever is behind the list.
class PaintedList : public QListView {
  protected:
    /// `name` is what a screen reader says.
    PaintedList(const QString& name, QWidget* parent);
};

/// Paints an item of such a list. An item that is too narrow for its text has a tooltip, the
/// model's Qt::ToolTipRole.
class ItemPainter : public QStyledItemDelegate {
  public:
    using QStyledItemDelegate::QStyledItemDelegate;

    /// The width in points at which the item shows its whole text.
    virtual int wantedWidth(const QStyleOptionViewItem& option, const QModelIndex& index) const = 0;

    bool helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                   const QModelIndex& index) override;
};

}  // namespace nulo
