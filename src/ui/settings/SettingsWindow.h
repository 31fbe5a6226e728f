#pragma once

#include <QRect>
#include <QWidget>
#include <memory>

#include "ui/settings/SettingsHost.h"

namespace nulo {

/// The window in which the user edits the words and the modes of `config`; not shown yet, in the
/// middle of the screen, and never larger than there is room on it. Closing it hides it and drops
/// what was not saved; it is never deleted by itself, and closing it does not end the program. Main
/// thread, with a QApplication.
std::unique_ptr<QWidget> makeSettingsWindow(const AppConfig& config, SettingsHost host);

/// Where it comes up, without its frame, on a screen that has `available` for windows, in points.
QRect settingsPlace(const QRect& available);

}  // namespace nulo
