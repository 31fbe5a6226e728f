#pragma once

#include <QPointer>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "app/PipelineLog.h"
#include "app/RecordingPipeline.h"
#include "app/WaveformOverlay.h"
#include "audio/AudioRecorder.h"
#include "base/Clock.h"
#include "base/Lifetime.h"
#include "base/LoginItem.h"
#include "base/MainQueue.h"
#include "base/Print.h"
#include "base/StatusItem.h"
#include "base/UserDefaults.h"
#include "config/ConfigFile.h"
#include "hotkey/GlobalKeyMonitor.h"
#include "pasting/Pasting.h"
#include "platform/dbus/RemoteControl.h"
#include "transcription/TranscriptionService.h"
#include "ui/overlay/WaveformWindow.h"
#include "ui/tray/MenuBarController.h"
#include "update/UpdateChecker.h"

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
        std::string_view version;
        Microphone& microphone;
        MakeAudioFileWriter makeAudioFileWriter;
        EventTapSource& eventTapSource;
        /// Whether the user can give the permission that the tap source is waiting for.
        bool permissionIsTheUsersToGive;
        Pasteboard& pasteboard;
        PasteKeystroke& pasteKeystroke;
        std::function<std::unique_ptr<HttpSession>(HttpSessionDelegate&)> makeHttpSession;
        std::function<void()> openShortcutHelp;
        StatusItem& statusItem;
        RemoteControl& remoteControl;
        UserDefaults& userDefaults;
        LoginItem& loginItem;
        UpdateHttp& updateHttp;
        UpdateWindows& updateWindows;
        ProcessLauncher& processLauncher;
        std::function<void()> terminate;  // ends the program normally; may return before it does
    };

    explicit AppDelegate(Surroundings surroundings);
    ~AppDelegate();
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    /// Once, before the event loop runs.
    void applicationDidFinishLaunching();
    /// A take in progress is not processed.
    void applicationWillTerminate();

  private:
    /// The service named by service.json beside the configuration, read once; none without a
    /// configuration or with a refused file.
    void loadTranscriptionService();
    void createMenuBar();
    void createUpdateChecker();
    void wireKeyMonitor();
    void wireRemoteControl();
    void observeRecording();
    void showAccessibility(bool granted);
    void showAccessibilityAlert();
    void proposeLoginItem();
    void recordStart();
    void recordStop();
    std::unique_ptr<QWidget> settingsWindow(const AppConfig& config,
                                            std::function<Outcome(const AppConfig&)> onSave,
                                            std::function<void()> onClose);

    Surroundings m_around;
    AudioRecorder m_recorder;
    GlobalKeyMonitor m_keyMonitor;
    WaveformWindow m_waveformWindow;
    WaveformOverlay m_overlay;
    std::unique_ptr<UpdateChecker> m_updateChecker;
    std::unique_ptr<MenuBarController> m_menuBarController;
    RecordingPipeline m_pipeline;
    std::string m_baseURL;  // of the service
    std::unique_ptr<TranscriptionService> m_transcriptionService;
    QPointer<QWidget> m_accessibilityAlert;
    QPointer<QWidget> m_loginItemOffer;
    Subscription m_recordingObserver;
    Lifetime m_lifetime;
};

}  // namespace nulo
