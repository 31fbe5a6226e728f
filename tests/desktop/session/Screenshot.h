#pragma once

#include <filesystem>
#include <string>

namespace nulo {

/// Saves what the X display shows, the whole root window, as a PNG file. Throws when it cannot.
void saveScreenshot(const std::string& display, const std::filesystem::path& file);

}  // namespace nulo
