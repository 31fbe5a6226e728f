#pragma once

#include <QPointer>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "app/PipelineLog.h"
#include "app/Recall.h"
#include "app/RecordingPipeline.h"
#include "audio/AudioRecorder.h"
#include "base/Clock.h"
#include "base/Lifetime.h"
#include "base/MainQueue.h"
#include "base/Print.h"
#include "config/ConfigFile.h"
#include "config/ServiceConfig.h"
#include "desktop/FailureNotices.h"
#include "desktop/LoginItem.h"
#include "desktop/RemoteControl.h"
#include "desktop/StatusItem.h"
#include "desktop/UserDefaults.h"
#include "hotkey/GlobalKeyMonitor.h"
#include "pasting/Pasting.h"
#include "transcription/TranscriptionService.h"
#include "ui/alerts/Alert.h"
#include "ui/overlay/WaveformWindow.h"
#include "ui/tray/MenuBarController.h"
#include "update/UpdateChecker.h"

namespace nulo {

/// Owns the long-lived parts and wires them to one another; it decides nothing itself. Main thread.
class AppDelegate {
  public:
    /// Everything referred to outlives the delegate.
    struct Dependencies {
        MainQueue& mainQueue;
        const Clock& clock;
        Print print;
        PipelineLog& log;
        const ConfigFile& configFile;
        std::filesystem::path temporaryFolder;   // for updates
        std::filesystem::path recordingsFolder;  // made private to the user
        std::string_view defaultBaseURL;
        std::string_view version;
        Microphone& microphone;
        MakeAudioFileWriter makeAudioFileWriter;
        EventTapSource& eventTapSource;
        std::string chord;  // Chord::title()
        /// Whether the user can give the permission that the tap source is waiting for; otherwise
        /// it comes and goes with what other programs do.
        bool permissionIsTheUsersToGive;
        Pasteboard& pasteboard;
        PasteKeystroke& pasteKeystroke;
        std::function<std::unique_ptr<HttpSession>(HttpSessionDelegate&)> makeHttpSession;
        std::function<void()> openShortcutHelp;
        OverlayPlacement& overlayPlacement;
        const Alerts& alerts;
        StatusItem& statusItem;
        RemoteControl& remoteControl;
        Notifications& notifications;
        UserDefaults& userDefaults;
        LoginItem& loginItem;
        UpdateHttp& updateHttp;
        UpdateWindows& updateWindows;
        ProcessLauncher& processLauncher;
        std::function<void()> terminate;    // ends the program normally; may return before it does
        std::filesystem::path stateFolder;  // for what the user wants to be kept
    };

    explicit AppDelegate(Dependencies dependencies);
    ~AppDelegate();
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    /// Call it once, before the event loop runs.
    void applicationDidFinishLaunching();
    /// A take in progress is not processed; those that are being processed are deleted.
    void applicationWillTerminate();
    /// Called in place of applicationWillTerminate() when the desktop is gone and the process is
    /// about to end: ends a take's capture and encoder, and touches no window.
    void desktopIsGone();

  private:
    /// Makes the client of the service that service.json names, which is read once; makes none
    /// without a configuration or with a refused file.
    void loadTranscriptionService();
    void makeTranscriptionService();
    /// Makes the client after all when the configuration was mended since the start.
    void makeMissingService();
    void createMenuBar();
    void createUpdateChecker();
    void wireKeyMonitor();
    void wireRemoteControl();
    void observeRecording();
    void checkAccessibilityLater();
    void showAccessibility(bool granted);
    void showAccessibilityAlert();
    void proposeLoginItem();
    void recordStart();
    void recordStop();
    void recordingFailed(const Error& reason);
    /// Shows the failure on the screen and, until a dictation succeeds, in the tray.
    void showFailure(const Notice& notice);
    void forgetFailure();
    std::unique_ptr<QWidget> settingsWindow(const AppConfig& config,
                                            std::function<Outcome(const AppConfig&)> onSave,
                                            std::function<void()> onClose);

    Dependencies m_dependencies;
    FailureNotices m_failureNotices;
    AudioRecorder m_recorder;
    GlobalKeyMonitor m_keyMonitor;
    WaveformWindow m_waveformWindow;
    std::unique_ptr<UpdateChecker> m_updateChecker;
    std::unique_ptr<MenuBarController> m_menuBarController;
    std::string m_failure;                         // the last one since a dictation succeeded
    std::optional<ServiceConfig> m_serviceConfig;  // nothing for a refused file
    // A dictation on its way uses the service, and goes first.
    std::unique_ptr<TranscriptionService> m_transcriptionService;
    RecordingPipeline m_pipeline;
    Recall m_recall;
    DictationOverlay::Panel m_recordingPanel = 0;  // of the take being recorded
    bool m_takeHasBegun = false;
    bool m_takeHasFailed = false;
    std::unique_ptr<MainQueue::Timer> m_longestRecording;
    bool m_accessibilityAlertWasShown = false;
    QPointer<QWidget> m_accessibilityAlert;
    QPointer<QWidget> m_loginItemOffer;
    Subscription m_recordingObserver;
    Lifetime m_lifetime;
};

}  // namespace nulo
