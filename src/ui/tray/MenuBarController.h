#pragma once

#include <QWidget>
#include <functional>
#include <memory>
#include <string>

#include "audio/AudioRecorder.h"
#include "base/Lifetime.h"
#include "base/Print.h"
#include "base/Result.h"
#include "config/ConfigFile.h"
#include "desktop/StatusItem.h"
#include "hotkey/GlobalKeyMonitor.h"

namespace nulo {

/// Makes the settings window for a configuration, in its place on the screen, not shown yet.
/// `onSave` stores what was edited; its error is for the user to read. `onClose` closes the window
/// and may be called inside it.
using MakeSettingsWindow = std::function<std::unique_ptr<QWidget>(
    const AppConfig& config, std::function<Outcome(const AppConfig&)> onSave,
    std::function<void()> onClose)>;

/// The program's face: icon and menu of its item in the tray, and the settings window that opens
/// from there. The menu keeps no state: it is made from the configuration file each time, last when
/// the tray is about to open it, so that a file edited by hand shows. Main thread.
class MenuBarController {
  public:
    /// All references outlive the controller, which takes over the item's onAboutToShow.
    MenuBarController(StatusItem& statusItem, AudioRecorder& recorder, GlobalKeyMonitor& keyMonitor,
                      const ConfigFile& configFile, Print print,
                      MakeSettingsWindow makeSettingsWindow);
    ~MenuBarController();
    MenuBarController(const MenuBarController&) = delete;
    MenuBarController& operator=(const MenuBarController&) = delete;

    std::function<void()> onCheckForUpdates;
    /// "Quitter" was chosen.
    std::function<void()> onQuit;
    /// Whether the permission is given, as last known. Call updateIcon() and rebuildMenu() after a
    /// change.
    bool accessibilityGranted = false;
    /// What went wrong last, for the icon's tooltip. Call updateIcon() after a change.
    std::string failure;
    /// Whether another program gets the chord's keys at present. Call updateIcon() after a change.
    bool shortcutIsObstructed = false;

    /// Shows the icon of a warning, without one that of a recording, else the idle one.
    void updateIcon();
    void rebuildMenu();
    /// The tray's menu, for another place.
    Menu menu();

    /// Nothing happens while the configuration cannot be loaded.
    void selectMode(const std::string& id);
    /// Brings an open window to the front, else makes one of the file as it is now.
    void openSettings();
    void checkForUpdates();
    void fixAccessibility();

  private:
    AppConfig configOrDefault() const;
    Outcome saveSettings(const AppConfig& config);
    void closeSettings();

    StatusItem& m_statusItem;
    AudioRecorder& m_recorder;
    GlobalKeyMonitor& m_keyMonitor;
    const ConfigFile& m_configFile;
    const Print m_print;
    const MakeSettingsWindow m_makeSettingsWindow;
    std::unique_ptr<QWidget> m_settingsWindow;
    Lifetime m_lifetime;
};

}  // namespace nulo
