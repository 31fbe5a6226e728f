#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string_view>

#include "app/PipelineLog.h"
#include "app/RecordingPipeline.h"
#include "app/WaveformOverlay.h"
#include "audio/AudioRecorder.h"
#include "base/Clock.h"
#include "base/Lifetime.h"
#include "base/MainQueue.h"
#include "base/Pasting.h"
#include "base/Print.h"
#include "config/ConfigFile.h"
#include "hotkey/GlobalKeyMonitor.h"
#include "transcription/TranscriptionService.h"
#include "ui/WaveformWindow.h"

namespace nulo {

/// Owns the long-lived parts and wires them to one another; it decides nothing itself. Main thread.
class AppDelegate {
  public:
    /// The program's surroundings; all of it outlives the delegate.
    struct Surroundings {
        MainQueue& mainQueue;
        const Clock& clock;
        Print print;
        PipelineLog& log;
        const ConfigFile& configFile;
        std::filesystem::path temporaryFolder;
        std::string_view defaultBaseURL;
        Microphone& microphone;
        MakeAudioFileWriter makeAudioFileWriter;
        EventTapSource& eventTapSource;
        Pasteboard& pasteboard;
        PasteKeystroke& pasteKeystroke;
        std::function<std::unique_ptr<HttpSession>(HttpSessionDelegate&)> makeHttpSession;
        std::function<void()> openShortcutHelp;
    };

    explicit AppDelegate(Surroundings surroundings);

    /// Once, before the event loop runs.
    void applicationDidFinishLaunching();
    /// A take in progress is not processed.
    void applicationWillTerminate();

  private:
    /// The service named by service.json beside the configuration, read once; none without a
    /// configuration or with a refused file.
    void loadTranscriptionService();
    void recordStart();
    void recordStop();

    Surroundings m_around;
    AudioRecorder m_recorder;
    GlobalKeyMonitor m_keyMonitor;
    WaveformWindow m_waveformWindow;
    WaveformOverlay m_overlay;
    RecordingPipeline m_pipeline;
    std::unique_ptr<TranscriptionService> m_transcriptionService;
    Lifetime m_lifetime;
};

}  // namespace nulo
