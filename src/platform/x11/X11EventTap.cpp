#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "base/Lifetime.h"
#include "platform/Backends.h"
#include "platform/x11/X11EventTapSession.h"
#include "platform/x11/X11EventTapWatchdog.h"

namespace nulo {
namespace {

using Clock = std::chrono::steady_clock;

/// Asking the server whether the grabs are still there wakes up the tap's thread and the server,
/// and finds a fault only if the grabs went although the connection stands: a lost connection is
/// noticed at once.
constexpr auto probeInterval = std::chrono::minutes(1);
constexpr auto longestProbe = std::chrono::seconds(2);
constexpr auto longestEnd = std::chrono::seconds(1);

/// Shared by the source and its present tap.
struct TapState {
    TapState() : wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~TapState() { close(wake); }

    const int wake;  // the tap's thread
    std::atomic<bool> exists = false;
    std::atomic<bool> working = false;        // connected and grabbing
    std::atomic<const char*> obstacle = {};   // as X11EventTapSession::obstacle()
    std::atomic<bool> mustLetGo = false;      // asked of the tap's thread
    std::function<void()> onObstacleChanged;  // called on the tap's thread
};

std::string takenFrom(const Chord& chord, const char* place) {
    return "another program has taken the " + chord.modifierNames() + " key of " + place;
}

/// The thread and its connections. Everything without a lock is the thread's, once it runs.
class X11EventTap final : public EventTap {
  public:
    X11EventTap(InjectionGate& gate, EventTapSource::Handler handler, Chord chord,
                std::shared_ptr<TapState> state)
        : m_gate(gate),
          m_handler(std::move(handler)),
          m_chord(std::move(chord)),
          m_state(std::move(state)) {}

    /// While the chord is held, its end is waited for, but not for long: Space must not begin to
    /// repeat in the application.
    ~X11EventTap() override {
        {
            std::unique_lock lock(m_mutex);
            m_quit = true;
            wake();
            m_ended.wait_for(lock, longestEnd,
                             [this] { return !m_thread.joinable() || m_hasEnded; });
            m_hurry = true;
        }
        m_watchdog.cut();
        wake();
        if (m_thread.joinable())
            m_thread.join();
        m_state->working = m_state->exists = false;
    }

    /// Once. The thread runs only when this succeeded.
    Outcome start() {
        auto session = open(false);
        if (!session)
            return session.error();
        if (const char* obstacle = session.value()->obstacle())
            return Error{takenFrom(m_chord, obstacle)};
        m_state->mustLetGo = false;
        m_state->exists = true;
        adopt(std::move(session.value()));
        m_thread = std::thread([this] { run(); });
        return Success{};
    }

    void enable() override {
        {
            const std::lock_guard lock(m_mutex);
            m_enableRequested = true;
        }
        wake();
    }

    /// Never waits: says what the tap's thread last knew, and has it ask the server now and then.
    bool isEnabled() override {
        const std::lock_guard lock(m_mutex);
        if (m_enableRequested)
            return true;
        if (!m_state->working)
            return false;
        const auto now = Clock::now();
        if (!m_probeIsWanted && (!m_probeSince || now - *m_probeSince > probeInterval)) {
            m_probeIsWanted = true;
            m_probeSince = now;
            wake();
        }
        return m_grabsAreAlive && !(m_probeIsWanted && now - *m_probeSince > longestProbe);
    }

    void postOptionDown() override {
        if (m_session)
            m_session->postOptionDown();
    }

  private:
    void wake() { eventfd_write(m_state->wake, 1); }

    Result<std::unique_ptr<X11EventTapSession>> open(bool hideSpace) {
        return X11EventTapSession::open(
            m_gate, m_handler, m_chord, [this](auto delay) { m_watchdog.expectDelay(delay); },
            hideSpace);
    }

    void adopt(std::unique_ptr<X11EventTapSession> session) {
        m_session = std::move(session);
        m_watchdog.watch(m_session ? m_session->sockets() : std::vector<int>());
        m_state->working = m_session != nullptr;
        tellObstacle();
    }

    void tellObstacle() {
        const char* const obstacle = m_session ? m_session->obstacle() : nullptr;
        if (m_state->obstacle.exchange(obstacle) != obstacle)
            m_state->onObstacleChanged();
    }

    void run() {
        // A server that goes away must not take the process along.
        sigset_t pipe;
        sigemptyset(&pipe);
        sigaddset(&pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipe, nullptr);

        bool begins = true;
        while (!hasQuit() || isHidingSpaceAtTheEnd()) {
            if (isEnableRequested()) {
                reopen();
                begins = true;
            }
            if (m_session)
                work(std::exchange(begins, false));
            answerProbe();
            waitForWork();
        }
        closeSession();
        const std::lock_guard lock(m_mutex);
        m_hasEnded = true;
        m_ended.notify_all();
    }

    bool hasQuit() {
        const std::lock_guard lock(m_mutex);
        return m_quit;
    }

    bool isHidingSpaceAtTheEnd() {
        const std::lock_guard lock(m_mutex);
        return !m_hurry && m_session && m_session->isKeyboardHeld() && m_session->isHidingSpace();
    }

    bool isEnableRequested() {
        const std::lock_guard lock(m_mutex);
        return m_enableRequested;
    }

    void reopen() {
        const bool hidSpace = m_session ? m_session->isHidingSpace() : m_hidSpace;
        closeSession();
        auto opened = open(hidSpace);
        const auto isObstructed = [&] { return !opened || opened.value()->obstacle(); };
        // The server may not have noticed yet that the connection before, with its grabs, is gone.
        for (int tries = 1; isObstructed() && tries < 5 && !hasQuit(); ++tries) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            opened = open(hidSpace);
        }
        adopt(opened ? std::move(opened.value()) : nullptr);
        const std::lock_guard lock(m_mutex);
        m_enableRequested = false;
        m_grabsAreAlive = true;
    }

    void work(bool begins) {
        m_watchdog.beginWork();
        if (begins)
            m_session->begin();
        if (m_state->mustLetGo.exchange(false))
            m_session->letGo();
        const bool alive = m_session->handleEvents();
        tellObstacle();
        m_watchdog.endWork(m_session->isKeyboardHeld());
        if (alive)
            return;
        const bool stalled = m_watchdog.stalled();
        closeSession();
        if (stalled && !hasQuit())
            m_handler({.type = KeyEvent::Type::tapDisabledByTimeout});
    }

    void closeSession() {
        if (m_session)
            m_hidSpace = m_session->isHidingSpace();
        m_watchdog.watch({});  // before the descriptors are used for something else
        m_watchdog.endWork(false);
        adopt(nullptr);
    }

    void answerProbe() {
        {
            const std::lock_guard lock(m_mutex);
            if (!m_probeIsWanted)
                return;
        }
        m_watchdog.beginWork();
        const bool alive = m_session && m_session->grabsAreAlive();
        tellObstacle();
        m_watchdog.endWork(m_session && m_session->isKeyboardHeld());
        const std::lock_guard lock(m_mutex);
        m_grabsAreAlive = alive;
        m_probeIsWanted = false;
    }

    void waitForWork() {
        {
            const std::lock_guard lock(m_mutex);
            if (m_enableRequested || (m_quit && m_hurry))
                return;
        }
        pollfd sources[] = {{m_state->wake, POLLIN, 0},
                            {m_session ? m_session->sockets().front() : -1, POLLIN, 0}};
        poll(sources, 2, -1);
        eventfd_t ignored;
        eventfd_read(m_state->wake, &ignored);
    }

    InjectionGate& m_gate;
    const EventTapSource::Handler m_handler;
    const Chord m_chord;
    const std::shared_ptr<TapState> m_state;
    X11EventTapWatchdog m_watchdog;
    std::unique_ptr<X11EventTapSession> m_session;
    bool m_hidSpace = false;

    std::mutex m_mutex;
    bool m_quit = false;
    bool m_hurry = false;  // with a chord that is held, too
    bool m_hasEnded = false;
    std::condition_variable m_ended;
    bool m_enableRequested = false;
    bool m_grabsAreAlive = true;
    bool m_probeIsWanted = false;
    std::optional<Clock::time_point> m_probeSince;  // the last one that was asked for

    std::thread m_thread;
};

class X11EventTapSource final : public EventTapSource {
  public:
    X11EventTapSource(InjectionGate& gate, MainQueue& mainQueue, Print print, Chord chord)
        : m_gate(gate),
          m_mainQueue(mainQueue),
          m_print(std::move(print)),
          m_chord(std::move(chord)) {
        m_state->onObstacleChanged = [this, look = m_lifetime.guard([this] {
            obstacleChanged();
        })] { m_mainQueue.async(look); };
    }

    /// While there is a tap, an obstacle is not a matter of trust: it comes and goes with the
    /// window.
    bool isTrusted() override {
        if (m_state->working)
            return true;
        if (m_state->exists) {  // the grabs of a look would be in the way of the tap's own
            const Outcome outcome = X11EventTapSession::check(m_gate, m_ignore, m_chord);
            explain(outcome ? std::string() : outcome.error().description);
            return outcome.ok();
        }
        const auto session = X11EventTapSession::open(
            m_gate, m_ignore, m_chord, [](auto) {}, false);
        const char* const obstacle = session ? session.value()->obstacle() : nullptr;
        explain(!session   ? session.error().description
                : obstacle ? takenFrom(m_chord, obstacle)
                           : "");
        return session && !obstacle;
    }

    std::unique_ptr<EventTap> createTap(Handler handler) override {
        auto tap = std::make_unique<X11EventTap>(m_gate, std::move(handler), m_chord, m_state);
        const Outcome outcome = tap->start();
        explain(outcome ? std::string() : outcome.error().description);
        return outcome ? std::move(tap) : nullptr;
    }

    void letGo() override {
        m_state->mustLetGo = true;
        eventfd_write(m_state->wake, 1);
    }

  private:
    void explain(const std::string& reason) {
        if (reason != m_lastReason && !reason.empty())
            m_print("No global shortcut: " + reason);
        m_lastReason = reason;
    }

    void obstacleChanged() {
        const char* const obstacle = m_state->obstacle;
        explain(obstacle ? takenFrom(m_chord, obstacle) : "");
        if (m_wasObstructed == (obstacle != nullptr))
            return;
        m_wasObstructed = obstacle != nullptr;
        if (const auto callback = onObstructed)
            callback(m_wasObstructed);
    }

    InjectionGate& m_gate;
    MainQueue& m_mainQueue;
    const Print m_print;
    const Chord m_chord;
    const Handler m_ignore = [](const KeyEvent&) { return EventFate::pass; };
    const std::shared_ptr<TapState> m_state = std::make_shared<TapState>();
    std::string m_lastReason;  // printed once, not at every look
    bool m_wasObstructed = false;
    Lifetime m_lifetime;
};

}  // namespace

std::unique_ptr<EventTapSource> makeX11EventTapSource(InjectionGate& gate, MainQueue& mainQueue,
                                                      Print print, const Chord& chord) {
    return std::make_unique<X11EventTapSource>(gate, mainQueue, std::move(print), chord);
}

}  // namespace nulo
