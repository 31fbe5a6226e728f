#pragma once

#include <sys/types.h>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace nulo {

/// A program started for a test, in a process group of its own; the group is killed at the end, and
/// by the kernel when the test program dies.
class ChildProcess {
  public:
    struct Options {
        /// NAME=value entries over this process's environment; "NAME" alone unsets.
        std::vector<std::string> environment;
        /// Standard output and error go there, appended; nowhere when empty.
        std::filesystem::path log;
    };

    /// argv[0] is searched in $PATH. Throws when it cannot be started.
    explicit ChildProcess(std::vector<std::string> arguments);
    ChildProcess(std::vector<std::string> arguments, Options options);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return m_pid; }
    /// To the whole group.
    void signal(int number);
    bool isRunning();
    /// Exit status, 128 + signal when killed, nothing when it still runs after the time-out.
    std::optional<int> wait(std::chrono::milliseconds timeout);

  private:
    bool reap(int options);

    pid_t m_pid = -1;
    std::optional<int> m_status;
};

/// Runs a program to its end and returns its standard output; throws when it fails.
std::string outputOf(std::vector<std::string> arguments, ChildProcess::Options options = {});

}  // namespace nulo
