#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/Clock.h"
#include "base/Lifetime.h"
#include "base/MainQueue.h"
#include "base/Published.h"
#include "desktop/DictationOverlay.h"
#include "ui/overlay/OverlayPanel.h"
#include "ui/overlay/WaveformView.h"

namespace nulo {

/// The overlay of one dictation after another: a small panel near the bottom of the screen with the
/// microphone's level, then the state of the transcription, then its text.
///
/// It is hidden until show(). From then until hide() the other calls may come in any order and
/// number; while it is hidden they do nothing, and no timer runs. Main thread, with a QApplication,
/// but where said otherwise.
class WaveformWindow final : public DictationOverlay {
  public:
    /// All outlive the window; `clock` runs the animations.
    WaveformWindow(MainQueue& mainQueue, const Clock& clock, OverlayPlacement& placement);

    /// Puts a new panel on the screen, in place of one still there, and draws each new value of
    /// `audioLevels` (0...1, oldest first) until the next mode. Does nothing without a screen.
    void show(Published<std::vector<float>>& audioLevels);
    Panel panel() const override { return m_panel; }
    void showTranscribing() override;
    /// The mode's name is not shown.
    void showStreaming(std::string_view modeName) override;
    void appendStreamingText(std::string_view text) override;
    void finishStreaming() override;
    void showToBePasted() override;

    /// Adds a line to the debug strip. Any thread; in the order of the calls, later, on main.
    void showDebugStep(std::string text) override;
    /// Replaces the strip's last line, if there is one. Any thread, in order with showDebugStep().
    void updateDebugStep(std::string text) override;
    void clearDebugSteps() override;

    void hide() override;

    /// What is on the screen; null while hidden. Valid until the next show() or hide().
    WaveformView* waveformView() { return m_waveformView; }
    /// The window on the screen, until it has faded away; null while hidden.
    OverlayPanel* window() { return m_window.get(); }

  private:
    void animate();
    /// Changes the lines later, on main, unless another panel is shown by then.
    void changeDebugLines(std::function<void(std::vector<std::string>& lines)> change);

    MainQueue& m_mainQueue;
    const Clock& m_clock;
    OverlayPlacement& m_placement;
    std::atomic<Panel> m_panel = 0;
    std::unique_ptr<OverlayPanel> m_window;
    WaveformView* m_waveformView = nullptr;  // the panel's; null as soon as it fades away
    Subscription m_cancellable;
    std::unique_ptr<MainQueue::Timer> m_animationTimer;
    Lifetime m_lifetime;
};

}  // namespace nulo
