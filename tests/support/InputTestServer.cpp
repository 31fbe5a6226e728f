#include "support/InputTestServer.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace nulo {
namespace {

// Messages of the server's inputtest driver, in the machine's byte order: length of the whole in
// bytes, type, content. Its protocol is 1.1.
enum MessageType : std::uint32_t { clientVersion = 0, waitForSync = 1, keyEvent = 5 };
struct ClientVersion {
    std::uint32_t length = sizeof(ClientVersion), type = clientVersion;
    std::uint16_t major = 1, minor = 1;
};
struct WaitForSync {
    std::uint32_t length = sizeof(WaitForSync), type = waitForSync;
};
struct KeyMessage {
    std::uint32_t length = sizeof(KeyMessage), type = keyEvent;
    std::int32_t code = 0;
    std::uint32_t isPress = 0;
};

template <typename Message>
bool sendMessage(int socket, const Message& message) {
    return ::send(socket, &message, sizeof message, MSG_NOSIGNAL) ==
           static_cast<ssize_t>(sizeof message);
}

bool isAnswered(int socket) {
    char answer[64];
    return read(socket, answer, sizeof answer) > 0;
}

/// What comes before the line feed, which the server writes apart, and ends when it cannot.
std::string lineFrom(int descriptor) {
    std::string line;
    pollfd source{descriptor, POLLIN, 0};
    char letter = 0;
    while (poll(&source, 1, 15000) > 0 && read(descriptor, &letter, 1) == 1) {
        if (letter == '\n')
            return line;
        line += letter;
    }
    return {};
}

/// A socket that the driver has greeted; -1 when it does not.
int connectedTo(const std::string& path) {
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval limit{5, 0};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const ClientVersion greeting;
    if (connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        sendMessage(socket, greeting) && isAnswered(socket))
        return socket;
    close(socket);
    return -1;
}

}  // namespace

InputTestServer::InputTestServer(const Options& options) {
    std::ofstream(m_folder / "xorg.conf") << configuration(options);
    start();
    for (int keyboard = 0; keyboard < options.keyboards; ++keyboard)
        connectKeyboard(keyboard);
}

InputTestServer::~InputTestServer() {
    for (const int socket : m_sockets)
        close(socket);
    m_process->signal(SIGTERM);  // lets it remove its lock and its socket
    m_process->wait(std::chrono::seconds(5));
}

void InputTestServer::tap(int key, int keyboard) {
    press(key, keyboard);
    release(key, keyboard);
}

std::string InputTestServer::socketPath(int keyboard) const {
    return m_folder / ("keyboard" + std::to_string(keyboard));
}

std::string InputTestServer::configuration(const Options& options) const {
    std::ostringstream devices;
    std::ostringstream layout;
    for (int keyboard = 0; keyboard < options.keyboards; ++keyboard) {
        devices << "Section \"InputDevice\"\n  Identifier \"keyboard" << keyboard
                << "\"\n  Driver \"inputtest\"\n  Option \"DeviceType\" \"Keyboard\"\n"
                << "  Option \"SocketPath\" \"" << socketPath(keyboard) << "\"\n"
                << "  Option \"XkbRules\" \"evdev\"\n  Option \"XkbLayout\" \"" << options.layout
                << "\"\nEndSection\n";
        layout << "  InputDevice \"keyboard" << keyboard << "\""
               << (keyboard == 0 ? " \"CoreKeyboard\"" : " \"SendCoreEvents\"") << "\n";
    }
    return devices.str() + "Section \"InputDevice\"\n  Identifier \"pointer\"\n" +
           "  Driver \"inputtest\"\n  Option \"DeviceType\" \"Pointer\"\n" +
           "  Option \"SocketPath\" \"" + (m_folder / "pointer").string() + "\"\nEndSection\n" +
           R"(Section "ServerFlags"
  Option "AutoAddDevices" "false"
EndSection
Section "Device"
  Identifier "card"
  Driver "dummy"
  VideoRam 16384
EndSection
Section "Monitor"
  Identifier "monitor"
  HorizSync 5-1000
  VertRefresh 5-200
EndSection
Section "Screen"
  Identifier "screen"
  Device "card"
  Monitor "monitor"
  DefaultDepth 24
  SubSection "Display"
    Depth 24
    Modes "1024x768"
  EndSubSection
EndSection
Section "ServerLayout"
  Identifier "layout"
  Screen "screen"
  InputDevice "pointer" "CorePointer"
)" + layout.str() +
           "EndSection\n";
}

void InputTestServer::start() {
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error("no pipe");
    fcntl(ends[0], F_SETFD, FD_CLOEXEC);
    ChildProcess::Options options;
    options.log = m_folder / "output";
    m_process = std::make_unique<ChildProcess>(
        std::vector<std::string>{"Xorg", "-displayfd", std::to_string(ends[1]), "-config",
                                 m_folder / "xorg.conf", "-logfile", m_folder / "log", "-noreset",
                                 "-novtswitch", "-sharevts", "-keeptty", "-nolisten", "tcp"},
        options);
    close(ends[1]);
    const std::string number = lineFrom(ends[0]);
    close(ends[0]);
    if (number.empty()) {
        std::ostringstream output;
        output << std::ifstream(options.log).rdbuf();
        throw std::runtime_error("Xorg did not start: " + output.str());
    }
    m_display = ":" + number;
}

// The driver serves one connection for its whole life.
void InputTestServer::connectKeyboard(int keyboard) {
    const int socket = connectedTo(socketPath(keyboard));
    if (socket < 0)
        throw std::runtime_error("no answer from the keyboard's socket " + socketPath(keyboard));
    m_sockets.push_back(socket);
}

void InputTestServer::send(int keyboard, int key, bool down) {
    const int socket = m_sockets.at(static_cast<std::size_t>(keyboard));
    KeyMessage message;
    message.code = key;
    message.isPress = down;
    if (!sendMessage(socket, message) || !sendMessage(socket, WaitForSync{}) || !isAnswered(socket))
        throw std::runtime_error("the X server does not answer on a keyboard's socket");
}

}  // namespace nulo
