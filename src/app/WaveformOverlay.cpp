#include "app/WaveformOverlay.h"

#include <string>

namespace nulo {

void WaveformOverlay::finishStreaming() {
    WaveformView* view = m_window.waveformView();
    if (!view)
        return;
    view->streamingDone = true;
    view->update();
}

void WaveformOverlay::showDebugStep(std::string_view text, DebugStep step) {
    if (step == DebugStep::replace) {
        m_window.updateDebugStep(std::string(text));
        return;
    }
    WaveformView* view = m_window.waveformView();
    if (step == DebugStep::replaceAll && view)
        view->debugLines.clear();
    m_window.showDebugStep(std::string(text));
}

}  // namespace nulo
