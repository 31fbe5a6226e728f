#pragma once

#include <QPoint>
#include <QWidget>
#include <functional>
#include <memory>

#include "base/Clock.h"
#include "base/MainQueue.h"

namespace nulo {

/// A frameless, translucent window above all others and on all desktops that never takes the
/// keyboard focus and can be dragged by its background. Main thread.
class OverlayPanel final : public QWidget {
  public:
    /// Both outlive the panel. It starts fully transparent and hidden.
    OverlayPanel(MainQueue& mainQueue, const Clock& clock);

    /// Each ends the one before and starts from the opacity that it had reached.
    void fadeIn();
    /// `onDone` may destroy the panel; it is not called once the panel is gone or fades in again.
    void fadeOut(std::function<void()> onDone);

  protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

  private:
    void fadeTo(double opacity, std::function<void()> onDone);

    MainQueue& m_mainQueue;
    const Clock& m_clock;
    QPoint m_dragPosition;
    std::unique_ptr<MainQueue::Timer> m_fade;
};

}  // namespace nulo
