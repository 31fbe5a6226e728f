#include "ui/overlay/WaveformView.h"

#include <QPainter>
#include <chrono>

namespace nulo {

WaveformView::WaveformView(const Clock& clock, QWidget* parent) : QWidget(parent), m_clock(clock) {}

double WaveformView::idealHeightForStreamingText(double width) {
    return nulo::idealHeightForStreamingText(*this, m_memory.layout, width);
}

void WaveformView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const std::chrono::duration<double> time = m_clock.now().time_since_epoch();
    paintWaveform(painter, *this, m_memory, size(), time.count());
}

}  // namespace nulo
