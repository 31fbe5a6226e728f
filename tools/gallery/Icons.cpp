#include <QImage>
#include <QPainter>
#include <cstddef>

#include "Gallery.h"
#include "rig/desktop/Screenshot.h"
#include "ui/tray/StatusIcons.h"

namespace nulo::gallery {
namespace {

constexpr int sizes[] = {16, 22, 24, 32, 48, 64};
constexpr int cell = 80;

QImage imageOf(const IconPixels& pixels) {
    return QImage(reinterpret_cast<const uchar*>(pixels.argb.data()), pixels.width, pixels.width,
                  QImage::Format_ARGB32)
        .copy();
}

}  // namespace

void drawIcons(const std::filesystem::path& folder) {
    const StatusIcon icons[] = {idleIcon(), recordingIcon(), warningIcon()};
    const QColor panels[] = {QColor(0x24, 0x24, 0x24), QColor(0xef, 0xf0, 0xf1)};
    QImage sheet(cell * int(std::size(sizes)), cell * int(std::size(icons) * std::size(panels)),
                 QImage::Format_RGB32);
    QPainter painter(&sheet);
    int y = 0;
    for (const QColor& panel : panels) {
        for (const StatusIcon& icon : icons) {
            painter.fillRect(0, y, sheet.width(), cell, panel);
            int x = 0;
            for (const int size : sizes) {
                painter.drawImage(x + (cell - size) / 2, y + (cell - size) / 2,
                                  imageOf(icon.draw(size)));
                x += cell;
            }
            y += cell;
        }
    }
    painter.end();
    savePicture(sheet, folder / "icons.png");
}

}  // namespace nulo::gallery
