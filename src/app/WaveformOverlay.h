#pragma once

#include "app/DictationOverlay.h"
#include "ui/overlay/WaveformWindow.h"

namespace nulo {

/// Shows the pipeline's stages in the overlay window, which outlives this.
class WaveformOverlay final : public DictationOverlay {
  public:
    explicit WaveformOverlay(WaveformWindow& window) : m_window(window) {}

    void showTranscribing() override { m_window.showTranscribing(); }
    void showStreaming(std::string_view modeName) override { m_window.showStreaming(modeName); }
    void appendStreamingText(std::string_view text) override { m_window.appendStreamingText(text); }
    void finishStreaming() override;
    void showDebugStep(std::string_view text, DebugStep step) override;
    void hide() override { m_window.hide(); }

  private:
    WaveformWindow& m_window;
};

}  // namespace nulo
