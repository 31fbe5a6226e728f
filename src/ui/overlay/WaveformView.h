#pragma once

#include <QWidget>

#include "base/Clock.h"
#include "ui/overlay/WaveformPainting.h"

namespace nulo {

/// Draws one dictation's overlay. What it shows are its own fields: change them, then update().
/// Main thread.
class WaveformView final : public QWidget, public WaveformContent {
  public:
    /// `clock` runs the animations and outlives the view.
    WaveformView(const Clock& clock, QWidget* parent);

    /// The height in points that the text needs in a panel `width` points wide.
    double idealHeightForStreamingText(double width);

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    const Clock& m_clock;
    WaveformMemory m_memory;
};

}  // namespace nulo
