#pragma once

#include <QWidget>

#include "ui/AlertContent.h"

namespace nulo {

/// The sign beside an alert's text, drawn here so that it is sharp at every scale and there without
/// an icon theme: a warning triangle, or a disc with an "i".
class AlertSign final : public QWidget {
  public:
    explicit AlertSign(AlertContent::Style style, QWidget* parent = nullptr);

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    const AlertContent::Style m_style;
};

}  // namespace nulo
