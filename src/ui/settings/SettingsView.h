#pragma once

#include <QRect>
#include <QWidget>
#include <functional>
#include <memory>
#include <optional>

#include "base/Result.h"
#include "config/AppConfig.h"
#include "desktop/StatusItem.h"
#include "ui/AlertContent.h"

namespace nulo {

/// What the settings window is given. All are called on main; onSave and onClose may destroy the
/// window.
struct SettingsDependencies {
    /// The file as it is on disk now; nothing when it cannot be read.
    std::function<std::optional<AppConfig>()> load;
    /// Writes the settings. An error's text is shown in the window, the edits stay.
    std::function<Outcome(const AppConfig&)> onSave;
    /// The window was closed; what was not saved is dropped.
    std::function<void()> onClose;
    /// Shows an alert over the window; `onAnswer` gets the button's index, once or not at all.
    std::function<void(QWidget& over, const AlertContent& content,
                       std::function<void(std::size_t button)> onAnswer)>
        ask;
    /// The program's menu, asked for each time it opens; its shortcuts work in the window. May be
    /// empty.
    std::function<Menu()> programMenu;
    /// Whether the window has a button for that menu: no tray shows it.
    bool showsProgramMenu = false;
};

/// The window in which the user edits the words and the modes of `config`; not shown yet, in the
/// middle of `visibleFrame`, the part of the screen that windows may have, and never larger than
/// it. Closing the window hides it and drops what was not saved; it is never deleted by itself, and
/// closing it does not end the program. Main thread, with a QApplication.
std::unique_ptr<QWidget> makeSettingsWindow(const AppConfig& config,
                                            SettingsDependencies dependencies,
                                            const QRect& visibleFrame);

}  // namespace nulo
