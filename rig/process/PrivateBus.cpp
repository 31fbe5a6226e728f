#include "rig/process/PrivateBus.h"

#include <signal.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "rig/process/WaitUntil.h"

namespace nulo {

PrivateBus::PrivateBus() : m_address("unix:path=" + (m_folder / "bus").string()) {
    std::ofstream(m_folder / "bus.conf")
        << "<busconfig><type>session</type><listen>" << m_address
        << "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
           "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/><allow own=\"*\"/>"
           "</policy></busconfig>";
    setenv("DBUS_SESSION_BUS_ADDRESS", m_address.c_str(), 1);
}

PrivateBus::~PrivateBus() {
    unsetenv("DBUS_SESSION_BUS_ADDRESS");
}

void PrivateBus::start() {
    ChildProcess::Options options;
    options.log = m_folder / "log";
    m_daemon.emplace(std::vector<std::string>{"dbus-daemon", "--nofork", "--nopidfile",
                                              "--config-file=" + (m_folder / "bus.conf").string()},
                     options);
    // The socket appears when it is listened to already.
    if (!waitUntil([&] { return std::filesystem::exists(m_folder / "bus"); }))
        throw std::runtime_error("dbus-daemon did not start");
}

void PrivateBus::stop() {
    if (!m_daemon)
        return;
    m_daemon->signal(SIGKILL);
    m_daemon->wait(std::chrono::seconds(5));
    m_daemon.reset();
    std::filesystem::remove(m_folder / "bus");
}

}  // namespace nulo
