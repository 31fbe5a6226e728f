#include "app/AppDelegate.h"

#include <string>

#include "app/StartUpDialogs.h"
#include "config/ServiceConfig.h"
#include "ui/settings/SettingsWindow.h"

namespace nulo {
namespace {

constexpr MainQueue::Delay warmUpDelay(1.0);
constexpr MainQueue::Delay loginItemOfferDelay(1.0);
constexpr MainQueue::Delay accessibilityCheckDelay(2.0);
constexpr MainQueue::Delay updateCheckDelay(3.0);

constexpr std::string_view hasLaunched = "nuloHasLaunched";

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
                  .loadConfig = [this] { return m_around.configFile.load(); }}),
      m_baseURL(m_around.defaultBaseURL) {}

AppDelegate::~AppDelegate() {
    delete m_accessibilityAlert;
    delete m_loginItemOffer;
}

void AppDelegate::applicationDidFinishLaunching() {
    m_around.configFile.createDefaultIfNeeded();
    loadTranscriptionService();
    createUpdateChecker();
    createMenuBar();
    m_around.mainQueue.asyncAfter(warmUpDelay, m_lifetime.guard([this] {
        if (m_transcriptionService)
            m_transcriptionService->warmUpConnection();
    }));
    m_around.mainQueue.asyncAfter(updateCheckDelay, m_lifetime.guard([this] {
        m_updateChecker->checkForUpdates(UpdateChecker::Check::silent);
    }));
    if (!m_around.userDefaults.boolean(hasLaunched).value_or(false)) {
        m_around.userDefaults.set(hasLaunched, true);
        m_around.mainQueue.asyncAfter(loginItemOfferDelay,
                                      m_lifetime.guard([this] { proposeLoginItem(); }));
    }
    m_around.mainQueue.asyncAfter(accessibilityCheckDelay, m_lifetime.guard([this] {
        if (!m_keyMonitor.isAccessibilityGranted())
            showAccessibility(false);
    }));
    wireKeyMonitor();
    wireRemoteControl();
    observeRecording();
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
    m_baseURL = config.value().baseURL;
    m_transcriptionService = std::make_unique<TranscriptionService>(
        m_baseURL, config.value().authHeaders,
        TranscriptionService::Dependencies{
            .makeSession = m_around.makeHttpSession,
            .mainQueue = m_around.mainQueue,
            .clock = m_around.clock,
            .print = m_around.print,
            .log = [this](std::string_view line) { m_around.log.log(line); }});
    m_pipeline.setTranscriptionService(m_transcriptionService.get());
}

void AppDelegate::createUpdateChecker() {
    m_updateChecker = std::make_unique<UpdateChecker>(
        m_baseURL, std::string(m_around.version),
        UpdateChecker::Dependencies{.http = m_around.updateHttp,
                                    .windows = m_around.updateWindows,
                                    .launcher = m_around.processLauncher,
                                    .defaults = m_around.userDefaults,
                                    .clock = m_around.clock,
                                    .mainQueue = m_around.mainQueue,
                                    .print = m_around.print,
                                    .terminate = m_around.terminate,
                                    .temporaryFolder = m_around.temporaryFolder});
}

void AppDelegate::createMenuBar() {
    m_menuBarController = std::make_unique<MenuBarController>(
        m_around.statusItem, m_recorder, m_keyMonitor, m_around.configFile, m_around.print,
        [this](const AppConfig& config, auto onSave, auto onClose) {
            return settingsWindow(config, std::move(onSave), std::move(onClose));
        });
    m_menuBarController->onCheckForUpdates = [this] {
        m_updateChecker->checkForUpdates(UpdateChecker::Check::byUser);
    };
    m_menuBarController->onQuit = m_around.terminate;
    m_menuBarController->updateIcon();
    m_menuBarController->rebuildMenu();
}

std::unique_ptr<QWidget> AppDelegate::settingsWindow(
    const AppConfig& config, std::function<Outcome(const AppConfig&)> onSave,
    std::function<void()> onClose) {
    SettingsHost host{.load = [this] { return m_around.configFile.load(); },
                      .onSave = std::move(onSave),
                      .onClose = std::move(onClose),
                      .programMenu = [this] { return m_menuBarController->menu(); },
                      // Without a tray the window is the only way to the rest of the menu.
                      .showsProgramMenu = !m_around.statusItem.isShown()};
    return makeSettingsWindow(config, std::move(host));
}

void AppDelegate::wireKeyMonitor() {
    m_keyMonitor.onAccessibilityChanged = [this](bool granted) {
        showAccessibility(granted);
        if (granted)
            m_around.print("Accessibility granted — Nulo is ready.");
    };
    m_keyMonitor.onRecordStart = [this] { recordStart(); };
    m_keyMonitor.onRecordStop = [this] { recordStop(); };
}

void AppDelegate::wireRemoteControl() {
    m_around.remoteControl.setActions(
        {.startRecording = m_lifetime.guard([this] { recordStart(); }),
         .stopRecording = m_lifetime.guard([this] { recordStop(); }),
         .toggle = m_lifetime.guard(
             [this] { m_recorder.isRecording().get() ? recordStop() : recordStart(); }),
         .showSettings = m_lifetime.guard([this] { m_menuBarController->openSettings(); })});
}

void AppDelegate::observeRecording() {
    m_recordingObserver = m_recorder.isRecording().subscribe([this](bool isRecording) {
        m_menuBarController->updateIcon();
        m_around.remoteControl.setRecording(isRecording);
    });
}

void AppDelegate::showAccessibility(bool granted) {
    m_menuBarController->accessibilityGranted = granted;
    m_menuBarController->updateIcon();
    m_menuBarController->rebuildMenu();
    if (granted)
        return;
    if (m_around.permissionIsTheUsersToGive)
        showAccessibilityAlert();
    else
        m_around.print("Nulo may not watch the keyboard at the moment: Option+Space is off.");
}

void AppDelegate::showAccessibilityAlert() {
    if (m_accessibilityAlert)
        return showInFront(*m_accessibilityAlert);
    m_accessibilityAlert = showAlert(accessibilityAlert(), [this](std::size_t button) {
        if (button == 0)
            m_keyMonitor.openAccessibilitySettings();
    });
}

void AppDelegate::proposeLoginItem() {
    m_loginItemOffer = showAlert(loginItemOffer(), [this](std::size_t button) {
        if (button != 0)
            return;
        const Outcome registered = m_around.loginItem.registerItem();
        m_around.print(registered
                           ? "Login item registered."
                           : "Failed to register login item: " + registered.error().description);
    });
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
