#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "audio/AacSampleRate.h"
#include "platform/Backends.h"

namespace nulo {
namespace {

namespace fs = std::filesystem;

/// An encoder that takes nothing for so long, of sound as it is recorded, counts as hanging.
constexpr std::size_t longestBacklogSeconds = 10;
/// At the end of a file these bound the looks at an encoder that does nothing, and the wait for one
/// that is busy.
constexpr auto betweenLooks = std::chrono::milliseconds(100);
constexpr int mostIdleLooks = 20;
constexpr auto longestWait = std::chrono::seconds(10);

std::string reasonOf(int number) {
    return std::generic_category().message(number);
}

/// An empty file that is its owner's alone. One that is there is replaced rather than reopened: who
/// still reads the old take keeps it, and its mode and links do not carry over.
Outcome createPrivateFile(const fs::path& path) {
    std::error_code ignored;
    fs::remove(path, ignored);
    const int descriptor =
        open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (descriptor < 0)
        return Error{"cannot create " + path.string() + ": " + reasonOf(errno)};
    close(descriptor);
    return Success{};
}

/// The encoder of this version, beside this program.
fs::path encoderProgram() {
    std::error_code ignored;
    return fs::read_symlink("/proc/self/exe", ignored).parent_path().parent_path() /
           "libexec/nulo-encoder";
}

/// Tells whether a process gets on. What the kernel counts of a process stays the same while that
/// is stopped or waits in vain; a process that is ready to run has only not had its turn on a busy
/// machine.
class ProcessActivity {
  public:
    explicit ProcessActivity(pid_t process)
        : m_file("/proc/" + std::to_string(process) + "/stat") {}

    /// Whether the process did anything since the last look.
    bool isSeen() {
        std::string line;
        std::getline(std::ifstream(m_file), line);
        const std::size_t state = line.rfind(')') + 2;  // after the name, which may hold anything
        const bool isReady = state < line.size() && line[state] == 'R';
        return std::exchange(m_line, line) != line || isReady;
    }

  private:
    const std::string m_file;
    std::string m_line;
};

/// A running encoder and the socket to it.
class EncoderProcess {
  public:
    /// The process is in a group of its own: an interrupt from the terminal is for Nulo, which
    /// completes the take. When Nulo is killed, the encoder completes what it has.
    static Result<EncoderProcess> start(const fs::path& program, const fs::path& file,
                                        const AudioFileSettings& settings) {
        std::array<int, 2> ends{};
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
            return Error{"no socket for the encoder: " + reasonOf(errno)};
        const int asMuchAsAllowed = 1 << 20;
        setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &asMuchAsAllowed, sizeof asMuchAsAllowed);

        std::string name = program.string();
        std::string path = file.string();
        std::string rate = std::to_string(std::lround(settings.sampleRate));
        std::string bitRate = std::to_string(settings.bitRate);
        char* const arguments[] = {name.data(), path.data(), rate.data(), bitRate.data(), nullptr};
        posix_spawn_file_actions_t files;
        posix_spawn_file_actions_init(&files);
        posix_spawn_file_actions_adddup2(&files, ends[1], STDIN_FILENO);
        posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setflags(
            &attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes, &signals);
        sigaddset(&signals, SIGPIPE);  // which Nulo ignores
        posix_spawnattr_setsigdefault(&attributes, &signals);
        pid_t process = 0;
        const int failure =
            posix_spawn(&process, name.c_str(), &files, &attributes, arguments, environ);
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&files);
        ::close(ends[1]);
        if (failure != 0) {
            ::close(ends[0]);
            return Error{"the encoder does not start: " + reasonOf(failure)};
        }
        const auto second = static_cast<std::size_t>(settings.sampleRate) * sizeof(float);
        return EncoderProcess(process, ends[0], longestBacklogSeconds * second);
    }

    EncoderProcess(EncoderProcess&& other) noexcept
        : m_process(std::exchange(other.m_process, 0)),
          m_socket(std::exchange(other.m_socket, -1)),
          m_longestBacklog(other.m_longestBacklog),
          m_unsent(std::move(other.m_unsent)) {}
    EncoderProcess& operator=(EncoderProcess&&) = delete;
    /// Ends it at once, unless it has answered.
    ~EncoderProcess() {
        if (m_process == 0)
            return;
        // Before the socket is closed: its end would have the encoder complete the file.
        if (!m_hasAnswered)
            kill(m_process, SIGKILL);
        ::close(m_socket);
        // Leaving its hundred libraries takes a process some milliseconds.
        std::thread([process = m_process] {
            while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
            }
        }).detach();
    }

    /// Never waits: what the socket has no room for is kept and sent later.
    Outcome send(std::span<const float> frames) {
        const auto bytes = std::as_bytes(frames);
        m_unsent.insert(m_unsent.end(), bytes.begin(), bytes.end());
        Outcome sent = sendWhatFits();
        if (sent && m_unsent.size() > m_longestBacklog)
            return Error{"the encoder does not keep up"};
        return sent;
    }

    /// Waits until the file is complete.
    Outcome finish() {
        const auto end = std::chrono::steady_clock::now() + longestWait;
        ProcessActivity activity(m_process);
        for (int idleLooks = 0; idleLooks < mostIdleLooks;) {
            if (const Outcome sent = sendWhatFits(); !sent)
                return sent;
            if (m_unsent.empty())
                shutdown(m_socket, SHUT_WR);
            pollfd socket{m_socket, POLLIN, 0};
            if (!m_unsent.empty())
                socket.events |= POLLOUT;
            const int ready = poll(&socket, 1, static_cast<int>(betweenLooks.count()));
            if (ready > 0 && socket.revents != POLLOUT)
                return outcome("the encoder has ended");
            if (ready == 0)
                idleLooks = activity.isSeen() ? 0 : idleLooks + 1;
            if (std::chrono::steady_clock::now() > end)
                break;
        }
        return Error{"the encoder hangs"};
    }

  private:
    EncoderProcess(pid_t process, int socket, std::size_t longestBacklog)
        : m_process(process), m_socket(socket), m_longestBacklog(longestBacklog) {}

    Outcome sendWhatFits() {
        std::size_t sent = 0;
        while (sent < m_unsent.size()) {
            const ssize_t count = ::send(m_socket, m_unsent.data() + sent, m_unsent.size() - sent,
                                         MSG_NOSIGNAL | MSG_DONTWAIT);
            if (count > 0)
                sent += static_cast<std::size_t>(count);
            else if (errno == EAGAIN)
                break;
            else if (errno != EINTR)
                return outcome("the encoder has ended: " + reasonOf(errno));
        }
        m_unsent.erase(m_unsent.begin(), m_unsent.begin() + static_cast<std::ptrdiff_t>(sent));
        return Success{};
    }

    /// Reads the answer that the encoder gives at its end.
    Outcome outcome(const std::string& withoutAnswer) {
        std::array<char, 1024> text{};
        const ssize_t count = recv(m_socket, text.data(), text.size(), MSG_DONTWAIT);
        m_hasAnswered = count > 0;
        if (!m_hasAnswered)
            return Error{withoutAnswer};
        const std::string_view answer(text.data(), static_cast<std::size_t>(count));
        return answer == "ok" ? Outcome(Success{}) : Error{std::string(answer)};
    }

    pid_t m_process;
    int m_socket;
    const std::size_t m_longestBacklog;  // bytes
    std::vector<std::byte> m_unsent;
    bool m_hasAnswered = false;
};

class EncoderProcessWriter final : public AudioFileWriter {
  public:
    EncoderProcessWriter(fs::path program, fs::path file, const AudioFileSettings& settings)
        : m_program(std::move(program)), m_file(std::move(file)), m_settings(settings) {}

    Outcome write(std::span<const float> frames) override {
        if (m_isClosed)
            return Error{"the file is closed"};
        Outcome written = ensureStarted();
        if (written)
            written = m_encoder->send(frames);
        if (!written && !m_failure)
            m_failure = written.error();
        return written;
    }

    Outcome close() override {
        if (std::exchange(m_isClosed, true))
            return Error{"the file is closed already"};
        Outcome closed = ensureStarted();
        if (closed)
            closed = m_encoder->finish();
        m_encoder.reset();
        if (!closed) {
            std::error_code ignored;
            fs::remove(m_file, ignored);
        }
        return closed;
    }

  private:
    /// Starts the encoder with the first frames, so that the microphone need not wait for it.
    Outcome ensureStarted() {
        if (m_failure)
            return *m_failure;
        if (m_encoder)
            return Success{};
        auto started = EncoderProcess::start(m_program, m_file, m_settings);
        if (!started)
            return started.error();
        m_encoder.emplace(std::move(started).value());
        return Success{};
    }

    const fs::path m_program;
    const fs::path m_file;
    const AudioFileSettings m_settings;
    std::optional<EncoderProcess> m_encoder;
    std::optional<Error> m_failure;
    bool m_isClosed = false;
};

}  // namespace

Result<std::unique_ptr<AudioFileWriter>> makeAacFileWriter(const fs::path& path,
                                                           const AudioFileSettings& settings) {
    if (settings.channels != 1)
        return Error{"only mono can be encoded"};
    if (aacSampleRate(static_cast<unsigned>(std::lround(settings.sampleRate))) !=
        settings.sampleRate)
        return Error{"AAC has no such sample rate: " +
                     std::to_string(std::lround(settings.sampleRate)) + " Hz"};
    const fs::path program = encoderProgram();
    if (access(program.c_str(), X_OK) != 0)
        return Error{"Nulo is not wholly installed: " + program.string() + ": " + reasonOf(errno)};
    if (const Outcome created = createPrivateFile(path); !created)
        return created.error();
    return std::unique_ptr<AudioFileWriter>(
        std::make_unique<EncoderProcessWriter>(program, path, settings));
}

}  // namespace nulo
