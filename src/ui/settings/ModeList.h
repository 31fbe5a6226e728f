#pragma once

#include <functional>

#include "ui/settings/PaintedList.h"
#include "ui/settings/SettingsModel.h"

namespace nulo {

class ModeListModel;

/// The modes by name, a row each, the built-in ones marked "inclus". Changes of the modes go
/// through it, so that its rows always are the model's. Main thread.
class ModeList final : public PaintedList {
  public:
    /// `model` outlives the list.
    ModeList(SettingsModel& model, QWidget* parent);

    void addMode();
    void deleteSelectedMode();
    /// The selected mode's name was edited.
    void refreshSelectedRow();

    /// The list is as wide as the names need, within bounds, and high enough for the built-in
    /// modes.
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

    /// Another mode is the model's selected one, or none.
    std::function<void()> onSelected;

  protected:
    QItemSelectionModel::SelectionFlags selectionCommand(const QModelIndex& index,
                                                         const QEvent* event) const override;

  private:
    void selectRow();

    SettingsModel& m_model;
    ModeListModel* m_rows;
    ItemPainter* m_painter;
    // While a row goes, the view makes a neighbour the current one, which the user did not choose.
    bool m_isChangingRows = false;
};

}  // namespace nulo
