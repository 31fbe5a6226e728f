#include "ui/tray/MenuBarController.h"

#include <utility>

#include "ui/OneLine.h"
#include "ui/WindowPlace.h"
#include "ui/tray/StatusIcons.h"

namespace nulo {
namespace {

using Kind = MenuEntry::Kind;

/// The longest name in UTF-16 units: a menu grows with its widest entry, off the screen if need be.
constexpr qsizetype longestModeName = 50;

void callIfSet(const std::function<void()>& callback) {
    const auto copy = callback;  // it may destroy its owner
    if (copy)
        copy();
}

}  // namespace

MenuBarController::MenuBarController(StatusItem& statusItem, AudioRecorder& recorder,
                                     GlobalKeyMonitor& keyMonitor, const ConfigFile& configFile,
                                     Print print, MakeSettingsWindow makeSettingsWindow)
    : m_statusItem(statusItem),
      m_recorder(recorder),
      m_keyMonitor(keyMonitor),
      m_configFile(configFile),
      m_print(std::move(print)),
      m_makeSettingsWindow(std::move(makeSettingsWindow)) {
    m_statusItem.onAboutToShow = [this] { rebuildMenu(); };
}

MenuBarController::~MenuBarController() {
    m_statusItem.onAboutToShow = nullptr;
}

void MenuBarController::updateIcon() {
    const bool warns = !accessibilityGranted || shortcutIsObstructed;
    StatusIcon icon = warns                            ? warningIcon()
                      : m_recorder.isRecording().get() ? recordingIcon()
                                                       : idleIcon();
    icon.detail = failure;
    m_statusItem.setIcon(std::move(icon));
}

void MenuBarController::rebuildMenu() {
    m_statusItem.setMenu(menu());
}

Menu MenuBarController::menu() {
    // Entries may still be clicked when the controller is gone.
    const auto calls = [this](void (MenuBarController::*action)()) -> std::function<void()> {
        return m_lifetime.guard([this, action] { (this->*action)(); });
    };
    const MenuEntry separator;
    Menu menu;
    if (!accessibilityGranted) {
        const auto fix = calls(&MenuBarController::fixAccessibility);
        menu.push_back({Kind::warning, "⚠️ Accessibilite requise", fix});
        menu.push_back({Kind::action, "  Ouvrir les Reglages...", fix});
        menu.push_back(separator);
    }
    menu.push_back({Kind::header, "Mode"});
    const AppConfig config = configOrDefault();
    bool anyChecked = false;  // of two modes with one id only the first can be in use
    for (const PromptMode& mode : config.availableModes()) {
        const bool active = !anyChecked && mode.id == config.activeMode;
        anyChecked = anyChecked || active;
        menu.push_back({Kind::choice, oneLine(mode.name, longestModeName).toStdString(),
                        m_lifetime.guard([this, id = mode.id] { selectMode(id); }), active});
    }
    menu.push_back(separator);
    menu.push_back(
        {Kind::action, "Reglages...", calls(&MenuBarController::openSettings), false, "Ctrl+,"});
    menu.push_back({Kind::action, "Rechercher une mise a jour...",
                    calls(&MenuBarController::checkForUpdates)});
    menu.push_back(separator);
    menu.push_back({Kind::action, "Quitter", m_lifetime.guard([this] { callIfSet(onQuit); }), false,
                    "Ctrl+Q"});
    return menu;
}

void MenuBarController::selectMode(const std::string& id) {
    auto config = m_configFile.load();
    if (!config)
        return;
    config->activeMode = id;
    m_configFile.save(*config);
    rebuildMenu();
    m_print("Mode changed to: " + config->activeModeName());
}

void MenuBarController::openSettings() {
    if (m_settingsWindow && m_settingsWindow->isVisible()) {
        bringToFront(*m_settingsWindow);
        return;
    }
    auto save = m_lifetime.guard(
        [this](const AppConfig& config, Outcome& outcome) { outcome = saveSettings(config); });
    m_settingsWindow = m_makeSettingsWindow(
        configOrDefault(),
        [save](const AppConfig& config) mutable {
            Outcome outcome = Error{"Nulo is quitting"};
            save(config, outcome);
            return outcome;
        },
        m_lifetime.guard([this] { closeSettings(); }));
    if (!m_settingsWindow)
        return;
    bringToFront(*m_settingsWindow);
}

void MenuBarController::checkForUpdates() {
    callIfSet(onCheckForUpdates);
}

void MenuBarController::fixAccessibility() {
    m_keyMonitor.openAccessibilitySettings();
}

AppConfig MenuBarController::configOrDefault() const {
    auto config = m_configFile.load();
    return config ? std::move(*config) : defaultConfig();
}

Outcome MenuBarController::saveSettings(const AppConfig& config) {
    Outcome saved = m_configFile.trySave(config);
    rebuildMenu();
    return saved;
}

/// Hidden, not destroyed: the call may come from inside the window.
void MenuBarController::closeSettings() {
    if (m_settingsWindow)
        m_settingsWindow->close();
}

}  // namespace nulo
