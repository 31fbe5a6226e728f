#pragma once

#include <functional>
#include <optional>

#include "base/Result.h"
#include "config/AppConfig.h"

class QMenu;

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
    /// Fills the program's menu each time it opens. Empty when a tray shows that menu already.
    std::function<void(QMenu&)> fillProgramMenu;
};

}  // namespace nulo
