#pragma once

#include <QPoint>
#include <QRect>
#include <QWidget>
#include <functional>
#include <memory>

#include "base/Clock.h"
#include "base/MainQueue.h"
#include "desktop/OverlayPlacement.h"
#include "ui/overlay/OverlayShadow.h"

namespace nulo {

/// The overlay's window. Its panel never takes the keyboard focus and is dragged by its background.
/// The margin around the panel holds what sets it off from the desktop behind it: a shadow, or a
/// mere line where windows cannot be translucent. Frames are the panel's, without the margin. Main
/// thread.
class OverlayPanel final : public QWidget {
  public:
    /// All outlive the panel. It starts fully transparent and hidden.
    OverlayPanel(MainQueue& mainQueue, const Clock& clock, OverlayPlacement& placement);

    /// Fills the panel with a child of this widget.
    void setContent(QWidget& content);

    /// The frame at which a widening under way will end; the present one without a widening.
    const QRect& frame() const { return m_frame; }
    /// Moves and resizes the panel at once; a widening under way goes on.
    void setFrame(const QRect& frame);
    /// Widens the panel to that frame, animated, from the present frame and about its centre.
    void widenTo(const QRect& frame);

    /// A fade ends the one before it and starts from the opacity that this had reached.
    void fadeIn();
    /// `onDone` may destroy the panel; it is not called once the panel is gone or fades in again.
    void fadeOut(std::function<void()> onDone);

  protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

  private:
    using Seconds = std::chrono::duration<double>;
    using Animation = std::unique_ptr<MainQueue::Timer>;

    void fadeTo(double opacity, std::function<void()> onDone);
    void run(Animation& animation, Seconds duration, std::function<void(double)> show,
             std::function<void()> onDone);
    void place();

    MainQueue& m_mainQueue;
    const Clock& m_clock;
    OverlayPlacement& m_placement;
    const bool m_isComposited;
    const int m_margin;
    OverlayShadow m_shadow;
    QWidget* m_content = nullptr;
    QRect m_frame;
    double m_opacity = 0;
    int m_missingWidth = 0;  // on either side, until the widening has ended
    QPoint m_dragPosition;
    Animation m_fade;
    Animation m_widening;
};

}  // namespace nulo
