#include "ui/overlay/OverlayFonts.h"

#include <QFontDatabase>

namespace nulo {
namespace {

QFont sized(QFontDatabase::SystemFont family, int size, QFont::Weight weight) {
    QFont font = QFontDatabase::systemFont(family);
    font.setPixelSize(size);
    font.setWeight(weight);
    return font;
}

}  // namespace

QFont systemFont(int size, QFont::Weight weight) {
    return sized(QFontDatabase::GeneralFont, size, weight);
}

QFont monospacedSystemFont(int size, QFont::Weight weight) {
    return sized(QFontDatabase::FixedFont, size, weight);
}

}  // namespace nulo
