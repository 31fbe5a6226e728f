#include "ui/overlay/WaveformWindow.h"

#include <QGuiApplication>
#include <QScreen>
#include <utility>

#include "ui/overlay/OverlayGeometry.h"

namespace nulo {
namespace {

constexpr MainQueue::Delay redrawInterval(0.05);

/// The screen that most of the panel is on.
QRect screenGeometry(const OverlayPanel& panel) {
    const QScreen* screen = QGuiApplication::screenAt(panel.frame().center());
    return (screen ? screen : panel.screen())->geometry();
}

}  // namespace

WaveformWindow::WaveformWindow(MainQueue& mainQueue, const Clock& clock,
                               OverlayPlacement& placement)
    : m_mainQueue(mainQueue), m_clock(clock), m_placement(placement) {}

void WaveformWindow::show(Published<std::vector<float>>& audioLevels) {
    ++m_panel;
    const QRect visibleFrame = m_placement.visibleFrame();
    if (visibleFrame.isEmpty())
        return;
    m_animationTimer.reset();
    m_window = std::make_unique<OverlayPanel>(m_mainQueue, m_clock, m_placement);
    m_waveformView = new WaveformView(m_clock, m_window.get());
    m_window->setContent(*m_waveformView);
    m_window->setFrame(initialPanelFrame(visibleFrame));
    m_window->show();
    m_window->raise();
    m_window->fadeIn();
    m_cancellable = audioLevels.subscribe([this](const std::vector<float>& levels) {
        m_waveformView->audioLevels = levels;
        m_waveformView->update();
    });
}

void WaveformWindow::showTranscribing() {
    if (!m_waveformView)
        return;
    m_waveformView->audioLevels.clear();
    m_waveformView->statusText = "Transcription...";
    m_waveformView->update();
    m_cancellable.reset();
    animate();
}

void WaveformWindow::showStreaming(std::string_view) {
    if (!m_waveformView)
        return;
    m_waveformView->audioLevels.clear();
    m_waveformView->statusText.reset();
    m_waveformView->streamingText = "";
    m_waveformView->streamingDone = false;
    m_waveformView->update();
    m_cancellable.reset();
    animate();
    m_window->widenTo(streamingPanelFrame(m_window->frame()));
}

void WaveformWindow::appendStreamingText(std::string_view text) {
    if (!m_waveformView)
        return;
    if (!m_waveformView->streamingText)
        m_waveformView->streamingText.emplace();
    *m_waveformView->streamingText += text;
    m_waveformView->update();
    const QRect frame = m_window->frame();
    const double idealHeight = m_waveformView->idealHeightForStreamingText(frame.width());
    m_window->setFrame(resizedPanelFrame(frame, idealHeight, screenGeometry(*m_window)));
}

void WaveformWindow::finishStreaming() {
    if (!m_waveformView)
        return;
    m_waveformView->streamingDone = true;
    m_waveformView->update();
}

void WaveformWindow::showToBePasted() {
    if (!m_waveformView)
        return;
    const bool isBelowText = !m_waveformView->streamingText.value_or("").empty();
    appendStreamingText(std::string(isBelowText ? "\n" : "") +
                        "→ Dans le presse-papiers, a coller");
    finishStreaming();
}

void WaveformWindow::showDebugStep(std::string text) {
    changeDebugLines([text = std::move(text)](auto& lines) { lines.push_back(text); });
}

void WaveformWindow::updateDebugStep(std::string text) {
    changeDebugLines([text = std::move(text)](auto& lines) {
        if (!lines.empty())
            lines.back() = text;
    });
}

void WaveformWindow::clearDebugSteps() {
    if (m_waveformView)
        m_waveformView->debugLines.clear();
}

void WaveformWindow::changeDebugLines(std::function<void(std::vector<std::string>&)> change) {
    m_mainQueue.async(m_lifetime.guard([this, panel = panel(), change = std::move(change)] {
        if (!m_waveformView || panel != m_panel)
            return;
        change(m_waveformView->debugLines);
        m_waveformView->update();
    }));
}

void WaveformWindow::hide() {
    m_cancellable.reset();
    m_animationTimer.reset();
    if (!m_waveformView)
        return;
    m_waveformView = nullptr;
    m_window->fadeOut([this] { m_window.reset(); });
}

void WaveformWindow::animate() {
    m_animationTimer =
        m_mainQueue.every(redrawInterval, [view = m_waveformView] { view->update(); });
}

}  // namespace nulo
