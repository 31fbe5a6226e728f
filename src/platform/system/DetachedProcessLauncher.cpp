#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "platform/Backends.h"

namespace nulo {
namespace {

/// All that the new process needs, made before the fork: afterwards nothing may be allocated, as
/// another thread may have held the allocator's lock.
struct Image {
    std::vector<char*> arguments;
    std::vector<char*> environment;
    int nullDevice;
    int errorPipe;
};

[[noreturn]] void report(int errorPipe, int number) {
    [[maybe_unused]] const ssize_t written = write(errorPipe, &number, sizeof number);
    _exit(127);
}

/// Gives the forked process its signals as a fresh process has them, whatever a thread of ours
/// blocks.
void resetSignals() {
    for (int number = 1; number < NSIG; ++number)
        std::signal(number, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

/// Forks once more, so that the program is no child of ours: the process that adopts it collects
/// it.
[[noreturn]] void becomeProgram(const Image& image) {
    setsid();
    const pid_t child = fork();
    if (child < 0)
        report(image.errorPipe, errno);
    if (child > 0)
        _exit(0);
    resetSignals();
    // Out of the way: with its standard descriptors closed this process opens others there.
    const int errorPipe = fcntl(image.errorPipe, F_DUPFD_CLOEXEC, 3);
    for (int descriptor = 0; descriptor <= 2; ++descriptor)
        if (dup2(image.nullDevice, descriptor) < 0)
            report(errorPipe, errno);
    // Ours all close themselves; a library's may not. The pipe must live until the program runs.
    close_range(3, UINT_MAX, CLOSE_RANGE_CLOEXEC);
    execve(image.arguments.front(), image.arguments.data(), image.environment.data());
    report(errorPipe, errno);
}

std::vector<char*> pointersTo(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string& text : texts)
        pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

/// Ours, and for a program that replaces this one: which process to wait for, what to start again.
std::vector<std::string> environmentOfChild() {
    std::vector<std::string> entries;
    for (char** entry = environ; *entry; ++entry)
        if (std::string_view name(*entry);
            !name.starts_with("NULO_PID=") && !name.starts_with("NULO_EXECUTABLE="))
            entries.emplace_back(name);
    entries.push_back("NULO_PID=" + std::to_string(getpid()));
    std::error_code error;
    if (const auto self = std::filesystem::read_symlink("/proc/self/exe", error); !error)
        entries.push_back("NULO_EXECUTABLE=" + self.string());
    return entries;
}

Error startError(const std::string& program, int number) {
    return {program + " cannot be started: " + std::generic_category().message(number)};
}

class DetachedProcessLauncher final : public ProcessLauncher {
  public:
    Outcome launch(const std::vector<std::string>& command) override {
        for (const std::string& argument : command)
            if (argument.find('\0') != std::string::npos)
                return Error{command.front() + " cannot be given a text with a NUL character"};
        const std::vector<std::string> environment = environmentOfChild();
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            return startError(command.front(), errno);
        const int nullDevice = open("/dev/null", O_RDWR);  // may be one of 0 to 2
        const Image image{pointersTo(command), pointersTo(environment), nullDevice, ends[1]};
        const pid_t child = nullDevice < 0 ? -1 : fork();
        if (child == 0)
            becomeProgram(image);
        int failure = child < 0 ? errno : 0;
        ::close(ends[1]);
        if (nullDevice >= 0)
            ::close(nullDevice);
        if (child > 0)
            failure = resultOf(child, ends[0]);
        ::close(ends[0]);
        if (failure != 0)
            return startError(command.front(), failure);
        return Success{};
    }

  private:
    /// The error number that came through the pipe; 0 when the program's start closed it.
    static int resultOf(pid_t intermediate, int pipe) {
        int number = 0;
        ssize_t count = 0;
        do
            count = read(pipe, &number, sizeof number);
        while (count < 0 && errno == EINTR);
        while (waitpid(intermediate, nullptr, 0) < 0 && errno == EINTR) {
        }
        return count == sizeof number ? number : 0;
    }
};

}  // namespace

std::unique_ptr<ProcessLauncher> makeProcessLauncher() {
    return std::make_unique<DetachedProcessLauncher>();
}

}  // namespace nulo
