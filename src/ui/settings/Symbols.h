#pragma once

#include <QPainterPath>
#include <QRectF>

namespace nulo {

/// Small pictures for controls, drawn here so that they look the same whatever icon theme is there.
enum class Symbol { xmarkCircleFill, plus, minus, menu };

/// The shape to be filled with the control's text colour (antialiased, even-odd), in the middle of
/// `box`, which it fills at most.
QPainterPath symbolPath(Symbol symbol, const QRectF& box);

}  // namespace nulo
