#pragma once

#include <QToolButton>

#include "ui/settings/Symbols.h"

namespace nulo {

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
