#include "base/StandardStreams.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>

namespace nulo {

void secureStandardStreams() {
    std::signal(SIGPIPE, SIG_IGN);
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
        if (fcntl(stream, F_GETFD) < 0)
            (void)open("/dev/null", O_RDWR);  // takes the lowest free number, which is this one
}

void silenceStandardOutput() {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere < 0)
        return;
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
}

}  // namespace nulo
