#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "hotkey/ReportedChord.h"
#include "platform/WaylandBackends.h"
#include "platform/wayland/SwayConnection.h"

namespace nulo {
namespace {

using Json = nlohmann::json;

// Without a program being started for each: the connection hears of them.
constexpr const char* down = "nop nulo-down";
constexpr const char* up = "nop nulo-up";
constexpr int retryInterval = 2000;  // milliseconds

/// The value, or another one of the same type where there is none of it.
template <typename T>
T field(const Json& object, const char* name, T otherwise) {
    if (!object.is_object())
        return otherwise;
    const auto found = object.find(name);
    const bool fits = found != object.end() && found->type() == Json(otherwise).type();
    return fits ? found->get<T>() : otherwise;
}

/// sway tells of the release only once the chord's key is let go, whichever key goes first.
class SwayBindings final : public EventTapSource {
  public:
    SwayBindings(std::string path, Print print, const Chord& chord)
        : m_path(std::move(path)),
          m_print(std::move(print)),
          m_chordName(chord.name()),
          m_keys(chord.written({"Ctrl", "Mod1", "Shift", "Mod4"}, chord.symbol)),
          m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (m_wake < 0)
            throw std::system_error(errno, std::generic_category(), "eventfd");
        m_thread = std::thread([this] { run(); });
    }

    ~SwayBindings() override {
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = write(m_wake, &one, sizeof one);
        m_thread.join();
        close(m_wake);
    }

    bool isTrusted() override { return m_isBound; }
    bool isUndecided() override { return m_isUndecided; }
    std::unique_ptr<EventTap> createTap(Handler handler) override {
        return m_isBound ? m_chord.makeTap(std::move(handler)) : nullptr;
    }
    void letGo() override { m_chord.setDown(false); }

  private:
    void run() {
        std::string last;
        for (bool isFirst = true; isFirst || !wait(-1, retryInterval); isFirst = false) {
            const std::string reason = serve();
            m_isUndecided = m_isBound = false;
            m_chord.setEnabled(false);
            m_chord.setDown(false);
            if (!reason.empty() && std::exchange(last, reason) != reason)
                m_print("No global shortcut: " + reason);
            if (reason.empty())
                return;
        }
    }

    /// Until the connection is lost, for the reason that is returned; nothing at the end.
    std::string serve() {
        auto connection = SwayConnection::open(m_path);
        if (!connection)
            return connection.error().description;
        SwayConnection& sway = connection.value();
        if (!sway.send(SwayConnection::subscribe, R"(["binding","workspace"])"))
            return "sway does not listen";
        if (!bind(sway))
            return "sway does not listen";
        while (!wait(sway.descriptor(), -1)) {
            const auto message = sway.receive();
            if (!message)
                return "the connection to sway is lost";
            if (const std::string reason = take(sway, *message); !reason.empty())
                return reason;
        }
        for (const char* released : {"", "--release "})
            sway.send(SwayConnection::runCommand, std::string("unbindsym ") + released + m_keys);
        return {};
    }

    bool bind(SwayConnection& sway) const {
        return sway.send(SwayConnection::runCommand,
                         "bindsym --no-repeat " + m_keys + " " + down) &&
               sway.send(SwayConnection::runCommand, "bindsym --release " + m_keys + " " + up);
    }

    /// Why the bindings are of no use; nothing when they are.
    std::string take(SwayConnection& sway, const SwayConnection::Message& message) {
        const Json content = Json::parse(message.content, nullptr, false);
        if (message.type == SwayConnection::runCommand) {
            const bool isDone =
                content.is_array() && !content.empty() && field(content.front(), "success", false);
            m_isBound = isDone;
            m_isUndecided = false;
            m_chord.setEnabled(isDone);
            return isDone ? "" : "sway does not bind " + m_chordName;
        }
        if (message.type == SwayConnection::bindingEvent) {
            const auto binding = content.is_object() ? content.find("binding") : content.end();
            const std::string command =
                binding == content.end() ? "" : field(*binding, "command", std::string());
            if (command == down || command == up)
                m_chord.setDown(command == down);
        }
        // With its configuration read anew sway has forgotten what was bound.
        if (message.type == SwayConnection::workspaceEvent &&
            field(content, "change", std::string()) == "reload") {
            m_chord.setDown(false);
            if (!bind(sway))
                return "sway does not listen";
        }
        return {};
    }

    /// Whether the source is to end; false when there is something to read, or the time is over.
    bool wait(int descriptor, int milliseconds) {
        pollfd sources[] = {{m_wake, POLLIN, 0}, {descriptor, POLLIN, 0}};
        while (::poll(sources, 2, milliseconds) < 0 && errno == EINTR) {
        }
        return sources[0].revents != 0;
    }

    const std::string m_path;
    const Print m_print;
    const std::string m_chordName;
    const std::string m_keys;  // as sway's configuration has them
    const int m_wake;
    std::atomic<bool> m_isUndecided = true;
    std::atomic<bool> m_isBound = false;
    ReportedChord m_chord;
    std::thread m_thread;
};

}  // namespace

std::unique_ptr<EventTapSource> makeSwayBindings(const std::string& socket, Print print,
                                                 const Chord& chord) {
    return std::make_unique<SwayBindings>(socket, std::move(print), chord);
}

}  // namespace nulo
