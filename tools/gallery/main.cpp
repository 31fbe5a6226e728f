// Draws what the user sees into picture files; tools/screenshots runs it for every theme and scale.
//
//   nulo-gallery icons FOLDER
//   nulo-gallery windows FOLDER light|dark|noto|large|rtl
//   nulo-gallery menus FOLDER

#include <QApplication>
#include <cstdio>
#include <exception>
#include <string>

#include "Gallery.h"

namespace {

int draw(const std::string& what, const std::filesystem::path& folder,
         const std::optional<nulo::gallery::Look>& look, int argc, char** argv) {
    using namespace nulo::gallery;
    std::filesystem::create_directories(folder);
    if (what == "menus") {
        drawMenus(folder);
        return 0;
    }
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    if (what == "icons")
        drawIcons(folder);
    else
        drawWindows(folder, *look);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    const auto look = nulo::gallery::lookNamed(argc > 3 ? argv[3] : "");
    const bool isKnown = (argc == 3 && (what == "icons" || what == "menus")) ||
                         (argc == 4 && what == "windows" && look);
    if (!isKnown) {
        std::fprintf(stderr,
                     "usage: nulo-gallery icons|menus FOLDER\n"
                     "       nulo-gallery windows FOLDER light|dark|noto|large|rtl\n");
        return 2;
    }
    try {
        return draw(what, argv[2], look, argc, argv);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "nulo-gallery: %s\n", failure.what());
        return 1;
    }
}
