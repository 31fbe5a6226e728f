#include "support/InputTestServer.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

#include "base/FileIO.h"

namespace nulo {
namespace {

// Messages of the server's inputtest driver, in the machine's byte order: length of the whole in
// bytes, type, content. Its protocol is 1.1.
struct ClientVersion {
    std::uint32_t length = sizeof(ClientVersion), type = 0;
    std::uint16_t major = 1, minor = 1;
};
struct WaitForSync {
    std::uint32_t length = sizeof(WaitForSync), type = 1;
};
struct KeyMessage {
    std::uint32_t length = sizeof(KeyMessage), type = 5;
    std::int32_t code;
    std::uint32_t isPress;
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
    for (char letter = 0; poll(&source, 1, 15000) > 0 && read(descriptor, &letter, 1) == 1;) {
        if (letter == '\n')
            return line;
        line += letter;
    }
    return {};
}

}  // namespace

InputTestServer::InputTestServer(const std::string& layout) {
    std::string configuration = readFile(NULO_TEST_DATA "/xorg.conf", 10'000).value();
    const auto replace = [&](const std::string& name, const std::string& value) {
        for (std::size_t at; (at = configuration.find(name)) != std::string::npos;)
            configuration.replace(at, name.size(), value);
    };
    replace("@FOLDER@", m_folder.path());
    replace("@LAYOUT@", layout);
    std::ofstream(m_folder / "xorg.conf") << configuration;
    start();
    m_keyboard = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval limit{5, 0};
    setsockopt(m_keyboard, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (m_folder / "keyboard").string().copy(address.sun_path, sizeof address.sun_path - 1);
    // The driver serves one connection for its whole life.
    if (connect(m_keyboard, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        !sendMessage(m_keyboard, ClientVersion{}) || !isAnswered(m_keyboard))
        throw std::runtime_error("no answer from the keyboard's socket");
}

InputTestServer::~InputTestServer() {
    close(m_keyboard);
    m_process->signal(SIGTERM);  // lets it remove its lock and its socket
    m_process->wait(std::chrono::seconds(5));
}

void InputTestServer::start() {
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error("no pipe");
    fcntl(ends[0], F_SETFD, FD_CLOEXEC);
    const auto log = m_folder / "output";
    m_process.emplace(
        std::vector<std::string>{"Xorg", "-displayfd", std::to_string(ends[1]), "-config",
                                 m_folder / "xorg.conf", "-logfile", m_folder / "log", "-noreset",
                                 "-novtswitch", "-sharevts", "-keeptty", "-nolisten", "tcp"},
        ChildProcess::Options{{}, log});
    close(ends[1]);
    m_display = ":" + lineFrom(ends[0]);
    close(ends[0]);
    if (m_display == ":")
        throw std::runtime_error("Xorg did not start: " + readFile(log, 100'000).value_or(""));
}

void InputTestServer::tap(int key) {
    press(key);
    release(key);
}

void InputTestServer::send(int key, bool down) {
    if (!sendMessage(m_keyboard, KeyMessage{.code = key, .isPress = down}) ||
        !sendMessage(m_keyboard, WaitForSync{}) || !isAnswered(m_keyboard))
        throw std::runtime_error("the X server does not answer on the keyboard's socket");
}

}  // namespace nulo
