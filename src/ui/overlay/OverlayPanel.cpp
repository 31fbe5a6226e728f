#include "ui/overlay/OverlayPanel.h"

#include <QMouseEvent>
#include <QPainter>
#include <algorithm>
#include <utility>

#include "ui/overlay/OverlayGeometry.h"
#include "ui/overlay/WaveformPainting.h"

namespace nulo {
namespace {

constexpr std::chrono::duration<double> fadeDuration(0.15);
constexpr std::chrono::duration<double> wideningDuration(0.2);
constexpr MainQueue::Delay animationStep(1.0 / 60);

/// The colour of the panel's edge where windows cannot be translucent: it shows on white and on
/// black.
const QColor edgeColor(96, 96, 96);
constexpr int edgeWidth = 1;

}  // namespace

OverlayPanel::OverlayPanel(MainQueue& mainQueue, const Clock& clock, OverlayPlacement& placement)
    : m_mainQueue(mainQueue),
      m_clock(clock),
      m_placement(placement),
      m_isComposited(placement.isComposited()),
      m_margin(m_isComposited ? OverlayShadow::margin : edgeWidth) {
    m_placement.prepare(*this);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_TranslucentBackground);
    setWindowTitle("Nulo");
    m_placement.setOpacity(*this, m_opacity);
}

void OverlayPanel::setContent(QWidget& content) {
    m_content = &content;
}

void OverlayPanel::setFrame(const QRect& frame) {
    m_frame = frame;
    place();
}

void OverlayPanel::widenTo(const QRect& frame) {
    const int shownWidth = m_frame.width() - 2 * m_missingWidth;
    const int missing = (frame.width() - shownWidth) / 2;
    m_frame = frame;
    const auto show = [this, missing](double progress) {
        const double eased = progress * progress * (3 - 2 * progress);
        m_missingWidth = qRound(missing * (1 - eased));
        place();
    };
    run(m_widening, wideningDuration, show, nullptr);
    show(0);
}

void OverlayPanel::fadeIn() {
    fadeTo(1, nullptr);
}

void OverlayPanel::fadeOut(std::function<void()> onDone) {
    fadeTo(0, std::move(onDone));
}

void OverlayPanel::fadeTo(double opacity, std::function<void()> onDone) {
    const double from = m_opacity;
    run(
        m_fade, fadeDuration,
        [this, opacity, from](double progress) {
            m_opacity = from + (opacity - from) * progress;
            m_placement.setOpacity(*this, m_opacity);
        },
        std::move(onDone));
}

/// Calls `show` with the share of the duration that is over, until that is 1.
void OverlayPanel::run(Animation& animation, Seconds duration, std::function<void(double)> show,
                       std::function<void()> onDone) {
    const auto step = [this, &animation, duration, show = std::move(show),
                       onDone = std::move(onDone), start = m_clock.now()] {
        const double progress = std::min(Seconds(m_clock.now() - start) / duration, 1.0);
        show(progress);
        if (progress < 1)
            return;
        const auto done = onDone;  // goes with the timer, or with the panel
        animation.reset();
        if (done)
            done();
    };
    animation = m_mainQueue.every(animationStep, step);
}

void OverlayPanel::place() {
    m_placement.place(*this, m_frame.adjusted(m_missingWidth, 0, -m_missingWidth, 0), m_margin);
}

void OverlayPanel::mousePressEvent(QMouseEvent* event) {
    m_dragPosition = event->globalPosition().toPoint();
}

void OverlayPanel::mouseMoveEvent(QMouseEvent* event) {
    if (!(event->buttons() & Qt::LeftButton))
        return;
    // By the way made since the last event: the panel may have been moved or resized meanwhile.
    const QPoint position = event->globalPosition().toPoint();
    setFrame(m_frame.translated(position - m_dragPosition));
    m_dragPosition = position;
}

void OverlayPanel::paintEvent(QPaintEvent* event) {
    // The content covers the panel but for its corners, and is drawn far more often than this.
    const QRect panel = rect().marginsRemoved({m_margin, m_margin, m_margin, m_margin});
    constexpr int corner = overlayCornerRadius;
    const QRegion uncovered = event->region() - panel.adjusted(corner, 0, -corner, 0) -
                              panel.adjusted(0, corner, 0, -corner);
    QPainter painter(this);
    painter.setClipRegion(uncovered);
    if (m_isComposited)
        m_shadow.draw(painter, rect());
    else
        painter.fillRect(rect(), edgeColor);
}

void OverlayPanel::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    if (m_content)
        m_content->setGeometry(rect().marginsRemoved({m_margin, m_margin, m_margin, m_margin}));
    // Where nothing composes windows, a transparent corner would show rubbish.
    if (!m_isComposited)
        setMask(roundedRegion(size(), overlayCornerRadius + m_margin));
}

}  // namespace nulo
