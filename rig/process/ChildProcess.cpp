#include "rig/process/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

[[noreturn]] void runChild(const std::vector<char*>& arguments,
                           const ChildProcess::Options& options) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const std::string& entry : options.environment) {
        const std::size_t equals = entry.find('=');
        if (equals == std::string::npos)
            unsetenv(entry.c_str());
        else
            setenv(entry.substr(0, equals).c_str(), entry.c_str() + equals + 1, 1);
    }
    const char* log = options.log.empty() ? "/dev/null" : options.log.c_str();
    const int output = open(log, O_WRONLY | O_CREAT | O_APPEND, 0600);
    const int input = open("/dev/null", O_RDONLY);
    dup2(input, 0);
    dup2(output, 1);
    dup2(output, 2);
    execvp(arguments[0], arguments.data());
    _exit(127);
}

}  // namespace

ChildProcess::ChildProcess(std::vector<std::string> arguments)
    : ChildProcess(std::move(arguments), Options{}) {}

ChildProcess::ChildProcess(std::vector<std::string> arguments, Options options) {
    std::vector<char*> pointers;
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    m_pid = fork();
    if (m_pid < 0)
        throw std::runtime_error("fork failed for " + arguments[0]);
    if (m_pid == 0)
        runChild(pointers, options);
    setpgid(m_pid, m_pid);
}

ChildProcess::~ChildProcess() {
    if (isRunning()) {
        kill(-m_pid, SIGKILL);
        reap(0);
    }
}

void ChildProcess::signal(int number) {
    kill(-m_pid, number);
}

bool ChildProcess::isRunning() {
    return !m_status && !reap(WNOHANG);
}

std::optional<int> ChildProcess::wait(std::chrono::milliseconds timeout) {
    waitUntil([this] { return !isRunning(); }, timeout);
    return m_status;
}

bool ChildProcess::reap(int options) {
    int status = 0;
    pid_t reaped = -1;
    do
        reaped = waitpid(m_pid, &status, options);
    while (reaped < 0 && errno == EINTR);
    if (reaped != m_pid)
        return false;
    m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return true;
}

std::string outputOf(std::vector<std::string> arguments, ChildProcess::Options options) {
    const TemporaryFolder folder;
    options.log = folder / "output";
    const std::string name = arguments[0];
    ChildProcess process(std::move(arguments), options);
    const auto status = process.wait(std::chrono::seconds(30));
    std::ostringstream text;
    text << std::ifstream(options.log).rdbuf();
    if (status != 0)
        throw std::runtime_error(name + " failed: " + text.str());
    return text.str();
}

}  // namespace nulo
