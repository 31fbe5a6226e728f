#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Gallery.h"
#include "config/ConfigFile.h"
#include "rig/desktop/DesktopPanel.h"
#include "rig/desktop/DesktopSession.h"
#include "rig/desktop/Screenshot.h"

namespace nulo::gallery {
namespace {

namespace fs = std::filesystem;
using Icon = DesktopPanel::Icon;

void saveMenu(DesktopSession& desktop, DesktopPanel& panel, Icon icon, const fs::path& file) {
    if (!panel.waitForIcon(icon))
        throw std::runtime_error("the panel did not show Nulo's icon");
    const QRect menu = panel.openMenu();
    if (menu.isEmpty())
        throw std::runtime_error("a click on the icon in the panel opened no menu");
    const QImage screen = takeScreenshot(desktop.xServer().display());
    savePicture(screen.copy(menu.left(), 0, menu.width(), menu.bottom() + 1), file);
    panel.closeMenu();
}

/// A session in which no program may watch the keyboard.
std::unique_ptr<ChildProcess> startWithoutPermission(const DesktopSession& desktop) {
    ChildProcess::Options options{desktop.environment(), desktop.home() / "output"};
    options.environment.emplace_back("XDG_SESSION_TYPE=wayland");
    options.environment.emplace_back("QT_QPA_PLATFORM=xcb");
    return std::make_unique<ChildProcess>(
        std::vector<std::string>{fs::path(NULO_BINARY_FOLDER) / "nulo"}, options);
}

}  // namespace

void drawMenus(const fs::path& folder) {
    DesktopSession desktop;
    const fs::path toolkit = desktop.home() / ".config/gtk-3.0";
    fs::create_directories(toolkit);
    std::ofstream(toolkit / "settings.ini") << "[Settings]\ngtk-font-name=Sans 11\n";
    const ConfigFile configFile(desktop.home(), [](std::string_view) {});
    configFile.save(someonesSettings());
    for (const auto look : {DesktopPanel::Look::light, DesktopPanel::Look::dark}) {
        const std::string suffix = look == DesktopPanel::Look::dark ? "-dark.png" : ".png";
        DesktopPanel panel(desktop, look);
        desktop.startNulo();
        saveMenu(desktop, panel, Icon::idle, folder / ("menu" + suffix));
        desktop.stopNulo();
        const std::unique_ptr<ChildProcess> nulo = startWithoutPermission(desktop);
        saveMenu(desktop, panel, Icon::warning, folder / ("menu-permission-missing" + suffix));
    }
}

}  // namespace nulo::gallery
