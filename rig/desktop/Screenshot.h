#pragma once

#include <QImage>
#include <filesystem>
#include <string>

namespace nulo {

/// What the X display shows, the whole root window. Throws when it cannot be read.
QImage takeScreenshot(const std::string& display);

/// As a PNG file. Throws when it cannot be written.
void savePicture(const QImage& picture, const std::filesystem::path& file);

}  // namespace nulo
