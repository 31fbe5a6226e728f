#pragma once

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <csignal>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/wayland/WaylandConnection.h"
#include "rig/display/HeadlessCompositor.h"
#include "rig/process/PrivateBus.h"
#include "rig/process/WaitUntil.h"

namespace nulo {

/// Plasma's portal, on the bus once it was made.
class KdePortal {
  public:
    KdePortal(const HeadlessCompositor& kwin, const PrivateBus& bus) : m_bus(bus) {
        ChildProcess::Options options = kwin.options("portal.log");
        options.environment.insert(
            options.environment.end(),
            {"XDG_CURRENT_DESKTOP=KDE", "LC_ALL=C.UTF-8", "HOME=" + kwin.folder().string(),
             "XDG_DATA_HOME=" + kwin.folder().string()});
        for (const auto& entry : std::filesystem::directory_iterator("/usr/lib"))
            if (const auto portal = entry.path() / "libexec/xdg-desktop-portal-kde";
                std::filesystem::exists(portal))
                start(m_desktopPart, portal, options, "org.freedesktop.impl.portal.desktop.kde");
        start(m_portal, "/usr/libexec/xdg-desktop-portal", options,
              "org.freedesktop.portal.Desktop");
    }
    void kill() { m_portal->signal(SIGKILL); }

  private:
    void start(std::optional<ChildProcess>& process, const std::string& program,
               const ChildProcess::Options& options, const char* name) {
        process.emplace(std::vector<std::string>{program}, options);
        const auto isOnBus = [&] {
            const auto bus = QDBusConnection::connectToBus(m_bus.address().c_str(), "look");
            return bus.interface()->isServiceRegistered(name).value();
        };
        if (!waitUntil(isOnBus, std::chrono::seconds(60)))
            throw std::runtime_error(program + " did not start");
    }

    const PrivateBus& m_bus;
    std::optional<ChildProcess> m_desktopPart;
    std::optional<ChildProcess> m_portal;
};

/// A keyboard of KWin's, for a program that it lets send keys. By the kernel's codes.
class KwinKeyboard {
  public:
    explicit KwinKeyboard(const std::string& display) {
        auto connection = WaylandConnection::open(display);
        if (!connection)
            throw std::runtime_error(connection.error().description);
        m_connection = std::move(connection).value();
        m_input =
            m_connection->bind<org_kde_kwin_fake_input>(org_kde_kwin_fake_input_interface, 4, 4);
        if (!m_input)
            throw std::runtime_error("KWin lets this program send no keys");
        org_kde_kwin_fake_input_authenticate(m_input.get(), "test", "test");
    }
    void key(std::uint32_t code, bool isDown) {
        org_kde_kwin_fake_input_keyboard_key(m_input.get(), code, isDown);
        m_connection->finish();
    }

    static constexpr std::uint32_t alt = 56, space = 57;

  private:
    std::unique_ptr<WaylandConnection> m_connection;
    Wayland<org_kde_kwin_fake_input> m_input;
};

}  // namespace nulo
