#include "app/AppDelegate.h"

#include <string>

#include "config/ServiceConfig.h"

namespace nulo {
namespace {

constexpr MainQueue::Delay warmUpDelay(1.0);

}  // namespace

AppDelegate::AppDelegate(Surroundings surroundings)
    : m_around(std::move(surroundings)),
      m_recorder(m_around.microphone, m_around.makeAudioFileWriter, m_around.mainQueue,
                 m_around.clock, m_around.print, m_around.temporaryFolder),
      m_keyMonitor(m_around.eventTapSource, m_around.mainQueue, m_around.print,
                   m_around.openShortcutHelp),
      m_waveformWindow(m_around.mainQueue, m_around.clock),
      m_overlay(m_waveformWindow),
      m_pipeline({.mainQueue = m_around.mainQueue,
                  .clock = m_around.clock,
                  .print = m_around.print,
                  .log = m_around.log,
                  .overlay = m_overlay,
                  .pasteboard = m_around.pasteboard,
                  .pasteKeystroke = m_around.pasteKeystroke,
                  .loadConfig = [this] { return m_around.configFile.load(); }}) {}

void AppDelegate::applicationDidFinishLaunching() {
    m_around.configFile.createDefaultIfNeeded();
    loadTranscriptionService();
    m_around.mainQueue.asyncAfter(warmUpDelay, m_lifetime.guard([this] {
        if (m_transcriptionService)
            m_transcriptionService->warmUpConnection();
    }));
    m_keyMonitor.onAccessibilityChanged = [this](bool granted) {
        m_around.print(granted ? "Accessibility granted — Nulo is ready."
                               : "Nulo may no longer watch the keyboard: Option+Space is off.");
    };
    m_keyMonitor.onRecordStart = [this] { recordStart(); };
    m_keyMonitor.onRecordStop = [this] { recordStop(); };
    m_keyMonitor.start();
    m_around.print("Nulo is running. Use Option+Space to record.");
}

void AppDelegate::applicationWillTerminate() {
    m_recorder.stopRecording();
    m_keyMonitor.stop();
}

void AppDelegate::loadTranscriptionService() {
    m_pipeline.setTranscriptionService(nullptr);
    m_transcriptionService.reset();
    if (!m_around.configFile.load()) {
        m_around.print("WARNING: No config found.");
        return;
    }
    auto config = loadServiceConfig(m_around.configFile.configDir() / "service.json",
                                    m_around.defaultBaseURL, m_around.print);
    if (!config) {
        m_around.print("WARNING: " + config.error().description);
        return;
    }
    m_transcriptionService = std::make_unique<TranscriptionService>(
        config.value().baseURL, config.value().authHeaders,
        TranscriptionService::Dependencies{
            .makeSession = m_around.makeHttpSession,
            .mainQueue = m_around.mainQueue,
            .clock = m_around.clock,
            .print = m_around.print,
            .log = [this](std::string_view line) { m_around.log.log(line); }});
    m_pipeline.setTranscriptionService(m_transcriptionService.get());
}

void AppDelegate::recordStart() {
    if (m_transcriptionService)
        m_transcriptionService->warmUpConnection();
    m_recorder.startRecording();
    m_waveformWindow.show(m_recorder.audioLevels());
}

void AppDelegate::recordStop() {
    m_pipeline.processRecording(m_recorder.stopRecording());
}

}  // namespace nulo
