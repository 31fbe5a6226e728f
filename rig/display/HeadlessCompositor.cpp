#include "rig/display/HeadlessCompositor.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "rig/process/WaitUntil.h"

namespace nulo {
namespace fs = std::filesystem;
namespace {

constexpr const char* socketName = "wayland-1";  // which sway takes unasked
constexpr uid_t nobody = 65534;

std::string contentOf(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
}

bool answers(const std::string& path) {
    const int connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const bool isThere =
        connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(connection);
    return isThere;
}

}  // namespace

HeadlessCompositor::HeadlessCompositor(Kind kind, Options options) : m_kind(kind) {
    fs::permissions(folder(), fs::perms::owner_all);
    const std::string home = folder();
    std::vector<std::string> arguments;
    ChildProcess::Options started{
        {"XDG_RUNTIME_DIR=" + home, "HOME=" + home, "XDG_CONFIG_HOME=" + home,
         "XDG_CACHE_HOME=" + home, "XDG_DATA_HOME=" + home, "WAYLAND_DISPLAY", "DISPLAY"},
        folder() / "compositor.log"};
    switch (kind) {
        case Kind::sway:
            std::ofstream(folder() / "sway.config")
                << "xwayland " << (options.hasXwayland ? "force" : "disable")
                << "\ndefault_border none\noutput * resolution 1280x800\n"
                << options.configuration;
            started.environment.insert(
                started.environment.end(),
                {"WLR_BACKENDS=headless", "WLR_LIBINPUT_NO_DEVICES=1", "WLR_RENDERER=pixman"});
            arguments = {"sway", "--config", folder() / "sway.config"};
            if (options.hasXwayland)
                arguments.push_back("--verbose");  // or it does not say which display
            break;
        case Kind::kwin:
            started.environment.insert(started.environment.end(),
                                       {"KWIN_COMPOSE=Q", "QT_QPA_PLATFORM", "LC_ALL=C.UTF-8"});
            openFakeInput(options.fakeInputPrograms, started.environment);
            // Plasma's launcher, where it is installed, has Alt+Space as long as nobody says so.
            std::ofstream(folder() / "kglobalshortcutsrc")
                << "[org.kde.krunner.desktop]\n_launch=none,Alt+Space,KRunner\n";
            // The installed one has a capability that a container may not give it.
            fs::copy_file("/usr/bin/kwin_wayland", folder() / "kwin_wayland");
            arguments = {folder() / "kwin_wayland",
                         "--virtual",
                         "--no-lockscreen",
                         "--width",
                         "1280",
                         "--height",
                         "800",
                         "--socket",
                         socketName};
            if (options.hasXwayland)  // a program that it starts then says which display
                arguments.insert(arguments.end(), {"--xwayland", "/usr/bin/env"});
            break;
        case Kind::mutter:
            arguments = {"mutter",   "--headless",        "--wayland", "--virtual-monitor",
                         "1280x800", "--wayland-display", socketName};
            if (!options.hasXwayland)
                arguments.push_back("--no-x11");
            break;
    }
    started.environment.insert(started.environment.end(), options.environment.begin(),
                               options.environment.end());
    if (kind == Kind::sway && geteuid() == 0)
        for (const auto& entry : fs::recursive_directory_iterator(folder()))
            [[maybe_unused]] const int changed = chown(entry.path().c_str(), nobody, nobody);
    if (kind == Kind::sway && geteuid() == 0) [[maybe_unused]]
        const int changed = chown(folder().c_str(), nobody, nobody);
    m_process.emplace(command(std::move(arguments)), started);
    const bool isThere = waitUntil(
        [&] {
            if (!answers(display()) || !m_process->isRunning())
                return !m_process->isRunning();
            if (!options.hasXwayland)
                return true;
            // Mutter names two, of which the first is for everybody.
            std::smatch found;
            const std::string said = log();
            if (std::regex_search(said, found, std::regex("(?:display |DISPLAY=| )(:\\d+)")))
                m_xDisplay = found[1];
            return !m_xDisplay.empty();
        },
        std::chrono::seconds(60));
    if (!isThere || !m_process->isRunning())
        throw std::runtime_error("the compositor did not start: " + log());
}

void HeadlessCompositor::openFakeInput(const std::vector<fs::path>& programs,
                                       const std::vector<std::string>& environment) const {
    fs::create_directory(folder() / "applications");
    for (const fs::path& program : programs)
        std::ofstream(folder() / "applications" / (program.filename().string() + ".desktop"))
            << "[Desktop Entry]\nType=Application\nNoDisplay=true\nName=Program\nExec="
            << program.string() << "\nX-KDE-Wayland-Interfaces=org_kde_kwin_fake_input\n";
    outputOf({"kbuildsycoca5"}, {environment, {}});
}

HeadlessCompositor::~HeadlessCompositor() {
    m_process->signal(SIGKILL);
    m_process->wait(std::chrono::seconds(5));
}

std::string HeadlessCompositor::display() const {
    return folder() / socketName;
}

std::vector<std::string> HeadlessCompositor::environment() const {
    std::vector<std::string> variables = {"XDG_RUNTIME_DIR=" + folder().string(),
                                          "WAYLAND_DISPLAY=" + display(),
                                          "XDG_SESSION_TYPE=wayland", "QT_QPA_PLATFORM",
                                          m_xDisplay.empty() ? "DISPLAY" : "DISPLAY=" + m_xDisplay};
    switch (m_kind) {
        case Kind::sway:
            variables.insert(variables.end(),
                             {"XDG_CURRENT_DESKTOP=sway", "SWAYSOCK=" + swaySocket()});
            break;
        case Kind::kwin:
            variables.insert(variables.end(), {"XDG_CURRENT_DESKTOP=KDE", "SWAYSOCK",
                                               "XAUTHORITY=" + fileThatStartsWith("xauth_")});
            break;
        case Kind::mutter:
            variables.insert(variables.end(),
                             {"XDG_CURRENT_DESKTOP=GNOME", "SWAYSOCK",
                              "XAUTHORITY=" + fileThatStartsWith(".mutter-Xwaylandauth.")});
            break;
    }
    return variables;
}

ChildProcess::Options HeadlessCompositor::options(const std::string& log) const {
    return {environment(), folder() / log};
}

std::vector<std::string> HeadlessCompositor::command(std::vector<std::string> arguments) const {
    if (m_kind != Kind::sway || geteuid() != 0)
        return arguments;
    std::vector<std::string> whole = {"setpriv",
                                      "--reuid",
                                      std::to_string(nobody),
                                      "--regid",
                                      std::to_string(nobody),
                                      "--clear-groups",
                                      "--pdeathsig",
                                      "KILL",
                                      "--"};
    whole.insert(whole.end(), arguments.begin(), arguments.end());
    return whole;
}

std::string HeadlessCompositor::fileThatStartsWith(const std::string& start) const {
    for (const auto& entry : fs::directory_iterator(folder()))
        if (entry.path().filename().string().starts_with(start))
            return entry.path();
    return {};
}

std::string HeadlessCompositor::swaySocket() const {
    return fileThatStartsWith("sway-ipc.");
}

std::string HeadlessCompositor::swaymsg(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"swaymsg", "--raw"});
    return outputOf(std::move(arguments), {environment(), {}});
}

void HeadlessCompositor::screenshot(const fs::path& file) const {
    outputOf({"grim", file}, {environment(), {}});
}

std::string HeadlessCompositor::log() const {
    return contentOf(folder() / "compositor.log");
}

}  // namespace nulo
