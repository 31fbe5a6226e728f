#pragma once

#include <filesystem>

#include "config/AppConfig.h"

/// The pictures that the program's author looks at after a change of what a user sees.
namespace nulo::gallery {

/// The words and modes that the pictures show.
AppConfig someonesSettings();

/// Every state of the tray icon at the sizes that panels ask for, on dark and on light. Needs a
/// QGuiApplication.
void drawIcons(const std::filesystem::path& folder);

enum class Theme { light, dark };
/// Every window, as it is at the scale in $QT_SCALE_FACTOR. Needs a QApplication.
void drawWindows(const std::filesystem::path& folder, Theme theme);

/// The menu as a real panel shows it, with and without the permission. Makes a desktop of its own.
void drawMenus(const std::filesystem::path& folder);

}  // namespace nulo::gallery
