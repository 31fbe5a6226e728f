#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "config/AppConfig.h"

/// The pictures that the program's author looks at after a change of what a user sees.
namespace nulo::gallery {

/// The words and modes that the pictures show.
AppConfig someonesSettings();

/// Every state of the tray icon at the sizes that panels ask for, on dark and on light. Needs a
/// QGuiApplication.
void drawIcons(const std::filesystem::path& folder);

/// How a desktop is set: light, dark, noto (another font), large (the text of those who need it
/// larger), rtl (written from right to left). Nothing for another name.
struct Look {
    std::string name;
    bool isDark = false;
    const char* font = "Cantarell";
    double points = 11;
    bool isRightToLeft = false;
};
std::optional<Look> lookNamed(const std::string& name);
/// Every window at the scale in $QT_SCALE_FACTOR, but the settings only where the screen is small.
/// Needs a QApplication.
void drawWindows(const std::filesystem::path& folder, const Look& look);

/// The menu as a real panel shows it, with and without the permission. Makes a desktop of its own.
void drawMenus(const std::filesystem::path& folder);

}  // namespace nulo::gallery
