#include "service/DecoderProcess.h"

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

// Debian 12's header does not say that its functions are those of C.
extern "C" {
#include <sys/pidfd.h>
}

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>

namespace nulo::service {
namespace {

struct Running {
    std::mutex mutex;
    std::shared_ptr<DecoderProcess> decoder;  // guarded by it
};

/// Never destroyed: threads of requests may outlive main().
Running& theRunning() {
    static Running& running = *new Running;
    return running;
}

Error notStarted(int number) {
    return {"the decoder of recordings does not start: " + std::generic_category().message(number)};
}

/// In a group of its own: an interrupt from the terminal is for the companion, which finishes what
/// is in flight. 0 or an error of the system.
int spawn(int socket, pid_t& process) {
    std::error_code ignored;
    std::string program =
        std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path().parent_path() /
        "libexec/nulo-decoder";
    char* const arguments[] = {program.data(), nullptr};
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, socket, STDIN_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    const int failure =
        posix_spawn(&process, program.c_str(), &files, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return failure;
}

void collect(pid_t process) {
    while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
    }
}

}  // namespace

Result<std::shared_ptr<DecoderProcess>> DecoderProcess::running() {
    auto& [mutex, decoder] = theRunning();
    const std::scoped_lock lock(mutex);
    if (!decoder || decoder->isGone()) {
        auto started = start();
        if (!started)
            return started.error();
        decoder = std::move(started).value();
    }
    return decoder;
}

void DecoderProcess::retire() {
    std::shared_ptr<DecoderProcess> retired;  // its end needs no lock
    auto& [mutex, decoder] = theRunning();
    const std::scoped_lock lock(mutex);
    retired.swap(decoder);
}

Result<std::shared_ptr<DecoderProcess>> DecoderProcess::start() {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
        return notStarted(errno);
    pid_t process = 0;
    const int failure = spawn(ends[1], process);
    close(ends[1]);
    if (failure != 0) {
        close(ends[0]);
        return notStarted(failure);
    }
    std::shared_ptr<DecoderProcess> started(new DecoderProcess(pidfd_open(process, 0), ends[0]));
    try {
        // It ends by itself when it was idle for long; leaving its libraries takes a while, too.
        std::thread(collect, process).detach();
    } catch (const std::system_error& error) {
        started.reset();
        collect(process);
        return notStarted(error.code().value());
    }
    return started;
}

DecoderProcess::~DecoderProcess() {
    pidfd_send_signal(m_process, SIGKILL, nullptr, 0);
    close(m_process);
    close(m_socket);
}

bool DecoderProcess::isGone() const {
    pollfd entry{m_socket, 0, 0};
    return poll(&entry, 1, 0) > 0;
}

int DecoderProcess::decode(int file) const {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
        return -1;
    const std::array<int, 2> given{file, ends[1]};
    char byte = 0;
    iovec part{&byte, 1};
    alignas(cmsghdr) char room[CMSG_SPACE(sizeof given)]{};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = room;
    message.msg_controllen = sizeof room;
    cmsghdr* const head = CMSG_FIRSTHDR(&message);
    head->cmsg_level = SOL_SOCKET;
    head->cmsg_type = SCM_RIGHTS;
    head->cmsg_len = CMSG_LEN(sizeof given);
    std::memcpy(CMSG_DATA(head), given.data(), sizeof given);
    ssize_t sent = 0;
    do
        sent = sendmsg(m_socket, &message, MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    close(ends[1]);
    if (sent > 0)
        return ends[0];
    close(ends[0]);
    return -1;
}

}  // namespace nulo::service
