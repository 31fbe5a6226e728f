#include "rig/desktop/DesktopPanel.h"

#include <xcb/xcb.h>

#include <QColor>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "rig/desktop/Screenshot.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace fs = std::filesystem;
namespace {

constexpr auto patience = std::chrono::seconds(10);

/// A panel's edge and its shadow are not what it shows.
constexpr int edge = 3;

template <typename Reply>
using Owned = std::unique_ptr<Reply, decltype(&std::free)>;

template <typename Reply>
Owned<Reply> owned(Reply* reply) {
    return {reply, &std::free};
}

/// The program that keeps the panel's settings; no service is started by name on a private bus.
std::string settingsService() {
    const fs::path entry = "/usr/share/dbus-1/services/org.xfce.Xfconf.service";
    std::ifstream lines(entry);
    const std::string mark = "Exec=";
    for (std::string line; std::getline(lines, line);)
        if (line.rfind(mark, 0) == 0)
            return line.substr(mark.size());
    throw std::runtime_error("no panel to show the icon in: " + entry.string() + " is missing");
}

void writePanelSettings(const fs::path& home, bool isDark) {
    const fs::path file = home / ".config/xfce4/xfconf/xfce-perchannel-xml/xfce4-panel.xml";
    fs::create_directories(file.parent_path());
    std::ofstream(file) << R"(<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0">
  <property name="configver" type="int" value="2"/>
  <property name="panels" type="array">
    <value type="int" value="1"/>
    <property name="dark-mode" type="bool" value=")"
                        << (isDark ? "true" : "false") << R"("/>
    <property name="panel-1" type="empty">
      <property name="position" type="string" value="p=6;x=0;y=0"/>
      <property name="position-locked" type="bool" value="true"/>
      <property name="length" type="uint" value="100"/>
      <property name="size" type="uint" value=")"
                        << DesktopPanel::height << R"("/>
      <property name="plugin-ids" type="array">
        <value type="int" value="1"/>
        <value type="int" value="2"/>
        <value type="int" value="3"/>
      </property>
    </property>
  </property>
  <property name="plugins" type="empty">
    <property name="plugin-1" type="string" value="separator">
      <property name="expand" type="bool" value="true"/>
      <property name="style" type="uint" value="0"/>
    </property>
    <property name="plugin-2" type="string" value="systray"/>
    <property name="plugin-3" type="string" value="separator">
      <property name="style" type="uint" value="0"/>
    </property>
  </property>
</channel>
)";
}

/// Whether some program comes to own the name on the bus.
bool waitForName(const std::string& busAddress, const QString& name) {
    const QString connection = "panel-" + name;
    const QDBusConnection bus =
        QDBusConnection::connectToBus(QString::fromStdString(busAddress), connection);
    const bool isOwned =
        bus.isConnected() &&
        waitUntil([&] { return bus.interface()->isServiceRegistered(name).value(); }, patience);
    QDBusConnection::disconnectFromBus(connection);
    return isOwned;
}

std::string contentOf(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

}  // namespace

DesktopPanel::DesktopPanel(DesktopSession& desktop, Look look) : m_desktop(desktop) {
    writePanelSettings(desktop.home(), look == Look::dark);
    const QImage without = takeScreenshot(desktop.xServer().display());
    const fs::path log = desktop.home() / "panel.log";
    ChildProcess::Options options{desktop.environment(), log};
    options.environment.emplace_back("NO_AT_BRIDGE=1");
    m_settingsService =
        std::make_unique<ChildProcess>(std::vector<std::string>{settingsService()}, options);
    // The panel asks for its settings once, when it starts.
    if (!waitForName(desktop.bus().address(), "org.xfce.Xfconf"))
        throw std::runtime_error("the panel's settings service did not start: " + contentOf(log));
    m_panel = std::make_unique<ChildProcess>(
        std::vector<std::string>{"xfce4-panel", "--disable-wm-check"}, options);
    const QPoint probe(edge, height / 2);
    const auto isDrawn = [&] {
        return takeScreenshot(desktop.xServer().display()).pixel(probe) != without.pixel(probe);
    };
    if (!waitForName(desktop.bus().address(), "org.kde.StatusNotifierWatcher") ||
        !waitUntil(isDrawn, patience))
        throw std::runtime_error("the panel did not appear: " + contentOf(log));
}

QRect DesktopPanel::iconPlace(const QImage& screen) {
    const QRgb background = screen.pixel(edge, height / 2);
    QRect place;
    for (int y = edge; y < height - edge; ++y)
        for (int x = edge; x < screen.width() - edge; ++x)
            if (screen.pixel(x, y) != background)
                place |= QRect(x, y, 1, 1);
    return place;
}

DesktopPanel::Icon DesktopPanel::iconOn(const QImage& screen) {
    const QRect place = iconPlace(screen);
    if (place.isEmpty())
        return Icon::none;
    QColor strongest = Qt::white;
    for (int y = place.top(); y <= place.bottom(); ++y)
        for (int x = place.left(); x <= place.right(); ++x) {
            const QColor color = screen.pixelColor(x, y);
            if (color.saturation() * color.value() > strongest.saturation() * strongest.value())
                strongest = color;
        }
    if (strongest.saturation() < 100)
        return Icon::idle;
    return strongest.hue() > 20 ? Icon::warning : Icon::recording;
}

bool DesktopPanel::waitForIcon(Icon icon) const {
    return waitUntil([&] { return iconOn(takeScreenshot(m_desktop.xServer().display())) == icon; },
                     patience);
}

QRect DesktopPanel::openMenu() {
    const std::vector<QRect> before = popups();
    const QPoint icon = iconPlace(takeScreenshot(m_desktop.xServer().display())).center();
    m_desktop.keyboard().movePointer(icon.x(), icon.y());
    m_desktop.keyboard().button(true);
    m_desktop.keyboard().button(false);
    QRect menu;
    QImage seen;
    // It is drawn after it has appeared, and may move while it grows: wait for it to rest.
    waitUntil(
        [&] {
            for (const QRect& popup : popups())
                if (popup.height() > 2 * height &&
                    std::find(before.begin(), before.end(), popup) == before.end())
                    menu = popup;
            if (menu.isEmpty())
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(150));
            const QImage now = takeScreenshot(m_desktop.xServer().display()).copy(menu);
            return std::exchange(seen, now) == now;
        },
        patience);
    return menu;
}

void DesktopPanel::closeMenu() {
    m_desktop.keyboard().tap(XTestKeyboard::escape);
}

/// The windows on the screen that no window manager frames.
std::vector<QRect> DesktopPanel::popups() const {
    const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection(
        xcb_connect(m_desktop.xServer().display().c_str(), nullptr), xcb_disconnect);
    xcb_connection_t* const server = connection.get();
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(server)).data->root;
    const auto tree = owned(xcb_query_tree_reply(server, xcb_query_tree(server, root), nullptr));
    std::vector<QRect> found;
    for (int i = 0; tree && i < xcb_query_tree_children_length(tree.get()); ++i) {
        const xcb_window_t window = xcb_query_tree_children(tree.get())[i];
        const auto attributes = owned(xcb_get_window_attributes_reply(
            server, xcb_get_window_attributes(server, window), nullptr));
        const auto place =
            owned(xcb_get_geometry_reply(server, xcb_get_geometry(server, window), nullptr));
        if (attributes && place && attributes->override_redirect &&
            attributes->map_state == XCB_MAP_STATE_VIEWABLE)
            found.emplace_back(place->x, place->y, place->width, place->height);
    }
    return found;
}

}  // namespace nulo
