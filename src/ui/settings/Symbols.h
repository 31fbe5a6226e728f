#pragma once

#include <QPainterPath>
#include <QRectF>
#include <QToolButton>

namespace nulo {

/// Small pictures for controls, drawn here so that they look the same whatever icon theme is there.
enum class Symbol { xmarkCircleFill, plus, minus, menu };

/// The shape to be filled with the control's text colour (antialiased, even-odd), in the middle of
/// `box`, which it fills at most.
QPainterPath symbolPath(Symbol symbol, const QRectF& box);

/// A borderless button with a symbol; reachable by the Tab key.
class SymbolButton final : public QToolButton {
  public:
    /// `name` is what a screen reader says and the tooltip shows.
    SymbolButton(Symbol symbol, const QString& name, QWidget* parent);

    QSize sizeHint() const override { return {28, 28}; }

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    Symbol m_symbol;
};

}  // namespace nulo
