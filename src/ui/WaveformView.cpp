#include "ui/WaveformView.h"

#include <QPainter>
#include <chrono>

#include "ui/WaveformPainting.h"

namespace nulo {

WaveformView::WaveformView(const Clock& clock, QWidget* parent) : QWidget(parent), m_clock(clock) {}

double WaveformView::idealHeightForStreamingText(double width) {
    return nulo::idealHeightForStreamingText(*this, m_layout, width);
}

void WaveformView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const std::chrono::duration<double> time = m_clock.now().time_since_epoch();
    paintWaveform(painter, *this, m_layout, size(), time.count());
}

}  // namespace nulo
