#include "support/TestXServer.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "support/WaitUntil.h"

namespace nulo {
namespace {

std::string readLine(int descriptor) {
    std::string line;
    for (char letter = 0; letter != '\n';) {
        pollfd source{descriptor, POLLIN, 0};
        if (poll(&source, 1, 20'000) <= 0 || read(descriptor, &letter, 1) != 1)
            throw std::runtime_error("Xvfb did not start");
        if (letter != '\n')
            line += letter;
    }
    return line;
}

bool hasWindowManager() {
    const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection(
        xcb_connect(nullptr, nullptr), xcb_disconnect);
    if (xcb_connection_has_error(connection.get()))
        return false;
    const std::string name = "_NET_SUPPORTING_WM_CHECK";
    const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> atom(
        xcb_intern_atom_reply(
            connection.get(),
            xcb_intern_atom(connection.get(), 0, static_cast<std::uint16_t>(name.size()),
                            name.c_str()),
            nullptr),
        std::free);
    if (!atom)
        return false;
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection.get())).data->root;
    const std::unique_ptr<xcb_get_property_reply_t, decltype(&std::free)> property(
        xcb_get_property_reply(
            connection.get(),
            xcb_get_property(connection.get(), 0, root, atom->atom, XCB_ATOM_WINDOW, 0, 1),
            nullptr),
        std::free);
    return property && property->value_len == 1;
}

}  // namespace

TestXServer::TestXServer(WindowManager windowManager, std::string screen) {
    if (const char* before = std::getenv("DISPLAY"))
        m_displayBefore = before;
    startServer(screen);
    setenv("DISPLAY", m_display.c_str(), 1);
    if (windowManager == WindowManager::openbox)
        startWindowManager();
}

TestXServer::~TestXServer() {
    if (m_displayBefore)
        setenv("DISPLAY", m_displayBefore->c_str(), 1);
    else
        unsetenv("DISPLAY");
}

void TestXServer::kill() {
    m_server->signal(SIGKILL);
    m_server->wait(std::chrono::seconds(5));
}

void TestXServer::startServer(const std::string& screen) {
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

void TestXServer::startWindowManager() {
    m_windowManager.emplace(std::vector<std::string>{"openbox", "--sm-disable"});
    if (!waitUntil(hasWindowManager, std::chrono::seconds(20)))
        throw std::runtime_error("openbox did not start");
}

}  // namespace nulo
