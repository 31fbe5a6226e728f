#include "ui/overlay/OverlayPanel.h"

#include <QMouseEvent>
#include <algorithm>
#include <utility>

#include "ui/overlay/OverlayGeometry.h"
#include "ui/overlay/WaveformPainting.h"

namespace nulo {
namespace {

using Seconds = std::chrono::duration<double>;
constexpr Seconds fadeDuration(0.15);
constexpr MainQueue::Delay fadeStep(1.0 / 60);

}  // namespace

OverlayPanel::OverlayPanel(MainQueue& mainQueue, const Clock& clock)
    // Unmanaged, a window is on all desktops and the window manager gives it no focus.
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           Qt::WindowDoesNotAcceptFocus | Qt::BypassWindowManagerHint),
      m_mainQueue(mainQueue),
      m_clock(clock) {
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_TranslucentBackground);
    setWindowTitle("Nulo");
    setWindowOpacity(0);
}

void OverlayPanel::fadeIn() {
    fadeTo(1, nullptr);
}

void OverlayPanel::fadeOut(std::function<void()> onDone) {
    fadeTo(0, std::move(onDone));
}

void OverlayPanel::fadeTo(double opacity, std::function<void()> onDone) {
    const auto step = [this, opacity, onDone = std::move(onDone), from = windowOpacity(),
                       start = m_clock.now()] {
        const double progress = std::min(Seconds(m_clock.now() - start) / fadeDuration, 1.0);
        setWindowOpacity(from + (opacity - from) * progress);
        if (progress < 1)
            return;
        const auto done = onDone;  // goes with the timer, or with the panel
        m_fade.reset();
        if (done)
            done();
    };
    m_fade = m_mainQueue.every(fadeStep, step);
}

void OverlayPanel::mousePressEvent(QMouseEvent* event) {
    m_dragPosition = event->globalPosition().toPoint();
}

void OverlayPanel::mouseMoveEvent(QMouseEvent* event) {
    if (!(event->buttons() & Qt::LeftButton))
        return;
    // By the way made since the last event: the panel may have been moved or resized meanwhile.
    const QPoint position = event->globalPosition().toPoint();
    move(pos() + position - m_dragPosition);
    m_dragPosition = position;
}

void OverlayPanel::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    // Where nothing composes windows, a transparent corner would show rubbish. The half covered
    // pixels of the edge stay in, so that it is smooth where windows are composed.
    setMask(roundedRegion(size(), overlayCornerRadius));
}

}  // namespace nulo
