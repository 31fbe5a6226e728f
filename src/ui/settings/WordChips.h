#pragma once

#include <functional>
#include <string>
#include <vector>

#include "ui/settings/PaintedList.h"

namespace nulo {

class WordChipsModel;

/// Words as chips that wrap, each with a remove button. As high as its words need while there is
/// room, else it scrolls. The arrow keys go through the chips, Delete or Backspace removes one.
/// Main thread.
class WordChips final : public PaintedList {
  public:
    /// Points of empty space around each chip.
    static constexpr int chipMargin = 3;

    WordChips(const std::vector<std::string>& words, QWidget* parent);

    /// The most points of height that the words take.
    void setMostHeight(int height);
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

    void appendWord(const std::string& word);
    void removeRow(int row);

    /// The user wants the chip away; the owner answers with removeRow().
    std::function<void(int row)> onRemove;

    /// The place of the remove button of a row's chip, in the viewport's coordinates.
    QRect removeButtonRect(int row) const;

    void doItemsLayout() override;

  protected:
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;

  private:
    int removeButtonRowAt(const QPoint& position) const;
    void requestRemoval(int row);

    WordChipsModel* m_model;
    int m_mostHeight = 0;
    int m_pressedRow = -1;  // whose remove button the mouse went down on
};

}  // namespace nulo
