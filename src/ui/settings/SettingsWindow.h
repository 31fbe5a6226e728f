#pragma once

#include <QWidget>
#include <memory>

#include "ui/settings/SettingsHost.h"

namespace nulo {

/// The window in which the user edits the words and the modes of `config`; not shown yet, in the
/// middle of the screen. Closing it hides it and drops what was not saved; it is never deleted by
/// itself, and closing it does not end the program. Main thread, with a QApplication.
std::unique_ptr<QWidget> makeSettingsWindow(const AppConfig& config, SettingsHost host);

}  // namespace nulo
