#include "app/AppDelegate.h"

#include <string>
#include <utility>

#include "app/FailureTexts.h"
#include "app/StartUpDialogs.h"
#include "ui/settings/SettingsView.h"

namespace nulo {
namespace {

constexpr MainQueue::Delay warmUpDelay(1.0);
constexpr MainQueue::Delay loginItemOfferDelay(1.0);
constexpr MainQueue::Delay accessibilityCheckDelay(2.0);
constexpr MainQueue::Delay updateCheckDelay(3.0);
constexpr MainQueue::Delay longestRecording(15 * 60);  // as the companion takes

constexpr std::string_view hasLaunched = "nuloHasLaunched";

}  // namespace

AppDelegate::AppDelegate(Dependencies dependencies)
    : m_dependencies(std::move(dependencies)),
      m_failureNotices(m_dependencies.notifications, m_dependencies.clock),
      m_recorder(m_dependencies.microphone, m_dependencies.makeAudioFileWriter,
                 m_dependencies.mainQueue, m_dependencies.clock, m_dependencies.print,
                 m_dependencies.recordingsFolder),
      m_keyMonitor(m_dependencies.eventTapSource, m_dependencies.mainQueue, m_dependencies.print,
                   m_dependencies.openShortcutHelp, m_dependencies.chord),
      m_waveformWindow(m_dependencies.mainQueue, m_dependencies.clock,
                       m_dependencies.overlayPlacement),
      m_pipeline(
          {.mainQueue = m_dependencies.mainQueue,
           .clock = m_dependencies.clock,
           .print = m_dependencies.print,
           .log = m_dependencies.log,
           .overlay = m_waveformWindow,
           .pasteboard = m_dependencies.pasteboard,
           .pasteKeystroke = m_dependencies.pasteKeystroke,
           .loadConfig = [this] { return m_dependencies.configFile.load(); },
           .onFailure = [this](const Notice& notice) { showFailure(notice); },
           .onSuccess = [this] { forgetFailure(); },
           .offer =
               [this](const Notice& notice, NoticeAction action) {
                   m_dependencies.notifications.offer(notice, std::move(action));
               },
           .withdrawOffer = [this] { m_dependencies.notifications.withdrawOffer(); },
           .onText = [this](const auto& text,
                            const auto& mode) { m_recall.textDelivered(text, mode); },
           .keepTake = [this](const auto& file,
                              const auto& route) { return m_recall.keepTake(file, route); }}),
      m_recall({.mainQueue = m_dependencies.mainQueue,
                .clock = m_dependencies.clock,
                .log = m_dependencies.log,
                .userDefaults = m_dependencies.userDefaults,
                .notifications = m_dependencies.notifications,
                .pipeline = m_pipeline,
                .service =
                    [this] {
                        makeMissingService();
                        return m_transcriptionService.get();
                    },
                .stateFolder = m_dependencies.stateFolder}) {}

AppDelegate::~AppDelegate() {
    delete m_accessibilityAlert;
    delete m_loginItemOffer;
}

void AppDelegate::applicationDidFinishLaunching() {
    m_dependencies.configFile.createDefaultIfNeeded();
    loadTranscriptionService();
    createUpdateChecker();
    createMenuBar();
    m_dependencies.mainQueue.asyncAfter(warmUpDelay, m_lifetime.guard([this] {
        if (m_transcriptionService)
            m_transcriptionService->warmUpConnection();
    }));
    m_dependencies.mainQueue.asyncAfter(updateCheckDelay, m_lifetime.guard([this] {
        m_updateChecker->checkForUpdates(UpdateChecker::Check::silent);
    }));
    if (!m_dependencies.userDefaults.boolean(hasLaunched).value_or(false)) {
        m_dependencies.userDefaults.set(hasLaunched, true);
        m_dependencies.mainQueue.asyncAfter(loginItemOfferDelay,
                                            m_lifetime.guard([this] { proposeLoginItem(); }));
    }
    checkAccessibilityLater();
    wireKeyMonitor();
    wireRemoteControl();
    observeRecording();
    m_keyMonitor.start();
    m_dependencies.print("Nulo is running. Use " + m_dependencies.chord + " to record.");
}

void AppDelegate::applicationWillTerminate() {
    m_recorder.stopRecording();
    m_keyMonitor.stop();
    m_pipeline.cancelAll();
}

void AppDelegate::desktopIsGone() {
    m_recorder.abandonRecording();
    m_pipeline.cancelAll();
}

void AppDelegate::loadTranscriptionService() {
    const bool isConfigured = m_dependencies.configFile.load().has_value();
    if (!isConfigured)
        m_dependencies.print("WARNING: No config found.");
    // Updates come from the service, whatever became of the configuration.
    auto config = loadServiceConfig(m_dependencies.configFile.configDir() / "service.json",
                                    m_dependencies.defaultBaseURL, m_dependencies.print);
    if (config)
        m_serviceConfig = std::move(config).value();
    else
        m_dependencies.print("WARNING: " + config.error().description);
    if (isConfigured && m_serviceConfig)
        return makeTranscriptionService();
    const Notice why = isConfigured ? serviceFileRefused(config.error()) : configUnreadable();
    m_pipeline.setTranscriptionService(nullptr, why);
    showFailure(why);
}

void AppDelegate::makeTranscriptionService() {
    m_transcriptionService = std::make_unique<TranscriptionService>(
        m_serviceConfig->baseURL, m_serviceConfig->authHeaders,
        TranscriptionService::Dependencies{
            .makeSession = m_dependencies.makeHttpSession,
            .mainQueue = m_dependencies.mainQueue,
            .clock = m_dependencies.clock,
            .print = m_dependencies.print,
            .log = [this](std::string_view line) { m_dependencies.log.log(line); }});
    m_pipeline.setTranscriptionService(m_transcriptionService.get());
}

void AppDelegate::makeMissingService() {
    if (!m_transcriptionService && m_serviceConfig && m_dependencies.configFile.load())
        makeTranscriptionService();
}

void AppDelegate::createUpdateChecker() {
    m_updateChecker = std::make_unique<UpdateChecker>(
        m_serviceConfig ? m_serviceConfig->baseURL : std::string(m_dependencies.defaultBaseURL),
        std::string(m_dependencies.version),
        UpdateChecker::Dependencies{.http = m_dependencies.updateHttp,
                                    .windows = m_dependencies.updateWindows,
                                    .launcher = m_dependencies.processLauncher,
                                    .defaults = m_dependencies.userDefaults,
                                    .clock = m_dependencies.clock,
                                    .mainQueue = m_dependencies.mainQueue,
                                    .print = m_dependencies.print,
                                    .terminate = m_dependencies.terminate,
                                    .temporaryFolder = m_dependencies.temporaryFolder});
}

void AppDelegate::createMenuBar() {
    m_menuBarController = std::make_unique<MenuBarController>(
        m_dependencies.statusItem, m_recorder, m_keyMonitor, m_dependencies.configFile,
        m_dependencies.print, [this](const AppConfig& config, auto onSave, auto onClose) {
            return settingsWindow(config, std::move(onSave), std::move(onClose));
        });
    m_menuBarController->onCheckForUpdates = [this] {
        m_updateChecker->checkForUpdates(UpdateChecker::Check::byUser);
    };
    m_menuBarController->onQuit = m_dependencies.terminate;
    m_menuBarController->failure = m_failure;
    m_menuBarController->updateIcon();
    m_menuBarController->rebuildMenu();
}

std::unique_ptr<QWidget> AppDelegate::settingsWindow(
    const AppConfig& config, std::function<Outcome(const AppConfig&)> onSave,
    std::function<void()> onClose) {
    SettingsDependencies dependencies{
        .load = [this] { return m_dependencies.configFile.load(); },
        .onSave = std::move(onSave),
        .onClose = std::move(onClose),
        .ask =
            [this](QWidget& over, const AlertContent& content, auto onAnswer) {
                m_dependencies.alerts.showOver(over, content, std::move(onAnswer));
            },
        .programMenu = [this] { return m_menuBarController->menu(); },
        // Without a tray the window is the only way to the rest of the menu.
        .showsProgramMenu = !m_dependencies.statusItem.isShown()};
    return makeSettingsWindow(config, std::move(dependencies),
                              m_dependencies.overlayPlacement.visibleFrame());
}

void AppDelegate::wireKeyMonitor() {
    m_keyMonitor.onAccessibilityChanged = [this](bool granted) {
        showAccessibility(granted);
        if (granted)
            m_dependencies.print("Accessibility granted — Nulo is ready.");
    };
    m_dependencies.eventTapSource.onObstructed = m_lifetime.guard([this](bool obstructed) {
        m_menuBarController->shortcutIsObstructed = obstructed;
        m_menuBarController->updateIcon();
    });
    m_keyMonitor.onRecordStart = [this] { recordStart(); };
    m_keyMonitor.onRecordStop = [this] { recordStop(); };
}

void AppDelegate::wireRemoteControl() {
    m_dependencies.remoteControl.setActions(
        {.startRecording = m_lifetime.guard([this] { recordStart(); }),
         .stopRecording = m_lifetime.guard([this] { recordStop(); }),
         .toggle = m_lifetime.guard(
             [this] { m_recorder.isRecording().get() ? recordStop() : recordStart(); }),
         .showSettings = m_lifetime.guard([this] { m_menuBarController->openSettings(); }),
         .pasteLast =
             m_lifetime.guard([this](std::size_t back, const RemoteActions::Answer& answer) {
                 m_recall.pasteLast(back, answer);
             }),
         .copyLast =
             m_lifetime.guard([this](std::size_t back, const RemoteActions::Answer& answer) {
                 m_recall.copyLast(back, answer);
             }),
         .retry = m_lifetime.guard(
             [this](const RemoteActions::Answer& answer) { m_recall.retry(answer); }),
         .forget = m_lifetime.guard([this] { m_recall.forget(); })});
}

void AppDelegate::observeRecording() {
    m_recorder.onFailure = [this](const Error& reason) { recordingFailed(reason); };
    m_recordingObserver = m_recorder.isRecording().subscribe([this](bool isRecording) {
        m_menuBarController->updateIcon();
        m_dependencies.remoteControl.setRecording(isRecording);
        m_longestRecording.reset();
        if (!isRecording)
            return;
        m_takeHasBegun = true;
        m_longestRecording = m_dependencies.mainQueue.every(longestRecording, [this] {
            m_dependencies.print("Recording ended: 15 minutes is the longest that one may take.");
            showFailure(recordingTooLong());
            recordStop();
        });
    });
}

void AppDelegate::checkAccessibilityLater() {
    m_dependencies.mainQueue.asyncAfter(accessibilityCheckDelay, m_lifetime.guard([this] {
        EventTapSource& source = m_dependencies.eventTapSource;
        if (source.isUndecided())
            checkAccessibilityLater();
        else if (!m_keyMonitor.isAccessibilityGranted() && !source.isTrusted())
            showAccessibility(false);
    }));
}

void AppDelegate::showAccessibility(bool granted) {
    m_menuBarController->accessibilityGranted = granted;
    m_menuBarController->updateIcon();
    m_menuBarController->rebuildMenu();
    if (granted)
        return;
    const bool wasShown = std::exchange(m_accessibilityAlertWasShown, true);
    if (m_dependencies.permissionIsTheUsersToGive)
        return showAccessibilityAlert();
    m_dependencies.print("Nulo may not watch the keyboard at the moment: " + m_dependencies.chord +
                         " is off.");
    // Other programs take the keyboard and give it back: one explanation is enough.
    if (!wasShown)
        showAccessibilityAlert();
}

void AppDelegate::showAccessibilityAlert() {
    if (m_accessibilityAlert)
        return m_dependencies.alerts.showInFront(*m_accessibilityAlert);
    m_accessibilityAlert =
        m_dependencies.alerts.show(accessibilityAlert(), [this](std::size_t button) {
            if (button == 0)
                m_keyMonitor.openAccessibilitySettings();
        });
}

void AppDelegate::proposeLoginItem() {
    m_loginItemOffer = m_dependencies.alerts.show(loginItemOffer(), [this](std::size_t button) {
        if (button != 0)
            return;
        const Outcome registered = m_dependencies.loginItem.registerItem();
        m_dependencies.print(registered ? "Login item registered."
                                        : "Failed to register login item: " +
                                              registered.error().description);
    });
}

void AppDelegate::recordStart() {
    makeMissingService();
    if (m_transcriptionService)
        m_transcriptionService->warmUpConnection();
    if (m_recorder.isRecording().get())
        return;
    m_takeHasBegun = false;
    m_takeHasFailed = false;
    m_recorder.startRecording();
    if (m_takeHasFailed)
        return;
    m_waveformWindow.show(m_recorder.audioLevels());
    m_recordingPanel = m_waveformWindow.panel();
}

void AppDelegate::recordStop() {
    const auto file = m_recorder.stopRecording();
    m_pipeline.processRecording(file, std::exchange(m_recordingPanel, 0));
}

void AppDelegate::recordingFailed(const Error& reason) {
    if (m_recorder.isRecording().get())
        return showFailure(recordingInterrupted(reason));
    if (m_takeHasBegun)
        return showFailure(recordingNotSaved(reason));
    m_takeHasFailed = true;
    m_pipeline.processRecording(std::nullopt, std::exchange(m_recordingPanel, 0));
    showFailure(recordingNotStarted(reason));
}

void AppDelegate::showFailure(const Notice& notice) {
    m_failureNotices.report(notice);
    m_failure = notice.title + ". " + notice.text;
    if (m_menuBarController) {
        m_menuBarController->failure = m_failure;
        m_menuBarController->updateIcon();
    }
}

void AppDelegate::forgetFailure() {
    if (m_failure.empty())
        return;
    m_failure.clear();
    m_menuBarController->failure.clear();
    m_menuBarController->updateIcon();
}

}  // namespace nulo
