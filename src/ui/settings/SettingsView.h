#pragma once

#include <QRect>
#include <QWidget>
#include <functional>
#include <memory>
#include <optional>

#include "base/Result.h"
#include "desktop/StatusItem.h"
#include "config/AppConfig.h"

namespace nulo {

/// What the settings window needs of its host. All are called on main; onSave and
/// onClose may destroy the window.
struct SettingsHost {
    /// The file as it is on disk now; nothing when it cannot be read.
    std::function<std::optional<AppConfig>()> load;
    /// Writes the settings. An error's text is shown in the window, the edits stay.
    std::function<Outcome(const AppConfig&)> onSave;
    /// The window was closed; what was not saved is dropped.
    std::function<void()> onClose;
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
std::unique_ptr<QWidget> makeSettingsWindow(const AppConfig& config, SettingsHost host,
                                            const QRect& visibleFrame);

}  // namespace nulo
