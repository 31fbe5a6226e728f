#include "ui/settings/PaintedList.h"

#include <QToolTip>

namespace nulo {

PaintedList::PaintedList(const QString& name, QWidget* parent) : QListView(parent) {
    setAccessibleName(name);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setFrameShape(QFrame::NoFrame);
    setTabKeyNavigation(false);
    setMouseTracking(true);
    viewport()->setAutoFillBackground(false);
}

bool ItemPainter::helpEvent(QHelpEvent* event, QAbstractItemView* view,
                            const QStyleOptionViewItem& option, const QModelIndex& index) {
    if (wantedWidth(option, index) > option.rect.width())
        return QStyledItemDelegate::helpEvent(event, view, option, index);
    QToolTip::hideText();
    return true;
}

}  // namespace nulo
