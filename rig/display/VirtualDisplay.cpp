#include "rig/display/VirtualDisplay.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

std::string readLine(int descriptor) {
    std::string line;
    for (char letter = 0; letter != '\n';) {
        pollfd source{descriptor, POLLIN, 0};
        if (poll(&source, 1, 60'000) <= 0 || read(descriptor, &letter, 1) != 1)
            throw std::runtime_error("Xvfb did not start");
        if (letter != '\n')
            line += letter;
    }
    return line;
}

/// Whether a new window is framed at once. openbox announces itself before it really manages
/// windows; one that is mapped in between is never seen again.
bool managesWindows() {
    const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection(
        xcb_connect(nullptr, nullptr), xcb_disconnect);
    xcb_connection_t* const server = connection.get();
    if (xcb_connection_has_error(server))
        return false;
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(server)).data->root;
    const xcb_window_t window = xcb_generate_id(server);
    const std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_create_window(server, XCB_COPY_FROM_PARENT, window, root, 0, 0, 50, 50, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK,
                      &events);
    xcb_map_window(server, window);
    xcb_flush(server);
    return waitUntil(
        [server] {
            const std::unique_ptr<xcb_generic_event_t, decltype(&std::free)> event(
                xcb_poll_for_event(server), std::free);
            return event && (event->response_type & 0x7f) == XCB_REPARENT_NOTIFY;
        },
        std::chrono::milliseconds(200));
}

}  // namespace

VirtualDisplay::VirtualDisplay(WindowManager windowManager, std::string screen) {
    if (const char* before = std::getenv("DISPLAY"))
        m_displayBefore = before;
    startServer(screen);
    setenv("DISPLAY", m_display.c_str(), 1);
    if (windowManager != WindowManager::none)
        startWindowManager(windowManager);
}

VirtualDisplay::~VirtualDisplay() {
    if (m_displayBefore)
        setenv("DISPLAY", m_displayBefore->c_str(), 1);
    else
        unsetenv("DISPLAY");
}

void VirtualDisplay::kill() {
    m_server->signal(SIGKILL);
    m_server->wait(std::chrono::seconds(5));
}

void VirtualDisplay::startServer(const std::string& screen) {
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error("no pipe");
    m_server.emplace(std::vector<std::string>{"Xvfb", "-displayfd", std::to_string(ends[1]),
                                              "-screen", "0", screen, "-nolisten", "tcp",
                                              "-noreset"});
    close(ends[1]);
    try {
        m_display = ":" + readLine(ends[0]);
    } catch (...) {
        close(ends[0]);
        throw;
    }
    close(ends[0]);
}

void VirtualDisplay::startWindowManager(WindowManager windowManager) {
    if (windowManager == WindowManager::openbox) {
        m_windowManager.emplace(std::vector<std::string>{"openbox", "--sm-disable"});
    } else {
        // Its shortcuts are another program's, which a session bus starts.
        const std::string home = m_home.path();
        m_windowManager.emplace(
            std::vector<std::string>{"dbus-run-session", "--", "kwin_x11", "--no-kactivities"},
            ChildProcess::Options{
                {"HOME=" + home, "XDG_CONFIG_HOME=" + home, "XDG_RUNTIME_DIR=" + home,
                 "KWIN_COMPOSE=N", "QT_QPA_PLATFORM=xcb"},
                {}});
    }
    if (!waitUntil(managesWindows, std::chrono::seconds(60)))
        throw std::runtime_error("the window manager did not start");
}

}  // namespace nulo
