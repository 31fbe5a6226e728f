#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "pasting/InjectionGate.h"
#include "platform/Backends.h"
#include "platform/x11/X11PasteDisplay.h"

namespace nulo {
namespace {

using namespace std::chrono_literals;
using Instant = std::chrono::steady_clock::time_point;

constexpr auto longestWaitForModifiers = 400ms;
constexpr auto modifierPollInterval = 10ms;
constexpr auto borrowedKeyHold = 1s;

std::string displayName() {
    const char* name = std::getenv("DISPLAY");
    return name ? name : "";
}

/// Everything that can wait (for the user's fingers, the key tap, the server) happens on one worker
/// thread, which sleeps until it is asked for a keystroke or the server has something to say.
class X11PasteKeystroke final : public PasteKeystroke {
  public:
    X11PasteKeystroke(InjectionGate& gate, Print print)
        : m_gate(gate),
          m_print(std::move(print)),
          m_displayName(displayName()),
          m_requests(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE)) {
        if (m_requests < 0)
            throw std::system_error(errno, std::generic_category(), "eventfd");
        m_thread = std::thread([this] { run(); });
    }

    ~X11PasteKeystroke() override {
        m_stopping = true;
        m_gate.cancel();
        post();  // wakes the worker
        m_thread.join();
        close(m_requests);
    }

    void post() override {
        const std::uint64_t one = 1;
        // Can only fail when 2^64 requests are waiting.
        [[maybe_unused]] const auto written = write(m_requests, &one, sizeof one);
    }

  private:
    void run() {
        // Early, so that the first paste is as quick as the others; each paste reports for itself.
        [[maybe_unused]] const Outcome early = connect();
        while (waitForRequest())
            if (const Outcome outcome = paste(); !outcome)
                m_print("Could not paste: " + outcome.error().description);
        m_display.reset();
    }

    Outcome connect() {
        if (m_display && m_display->drain())
            return Success{};
        m_display.reset();
        auto opened = X11PasteDisplay::open(m_displayName);
        if (!opened)
            return opened.error();
        m_display = std::move(opened).value();
        return Success{};
    }

    /// False when the worker is to end.
    bool waitForRequest() {
        while (!m_stopping) {
            std::uint64_t one = 0;
            if (read(m_requests, &one, sizeof one) > 0)
                return !m_stopping;
            returnBorrowedKeyInTime();
            pollfd sources[] = {{m_requests, POLLIN, 0},
                                {m_display ? m_display->fileDescriptor() : -1, POLLIN, 0}};
            ::poll(sources, 2, millisecondsUntilReturn());
            if (sources[1].revents && !m_display->drain())
                m_display.reset();
        }
        return false;
    }

    void returnBorrowedKeyInTime() {
        if (m_display && m_display->hasBorrowedKey() &&
            std::chrono::steady_clock::now() >= m_borrowedUntil)
            m_display->returnBorrowedKey();
    }

    int millisecondsUntilReturn() const {
        if (!m_display || !m_display->hasBorrowedKey())
            return -1;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            m_borrowedUntil - std::chrono::steady_clock::now());
        return std::max(0, static_cast<int>(left.count()));
    }

    Outcome paste() {
        if (Outcome outcome = connect(); !outcome)
            return outcome;
        // While the tap holds the keyboard the server does not tell which keys are down.
        if (!InjectionGate::Scope(m_gate.enter()))
            return Success{};
        waitForModifiers();
        const InjectionGate::Scope scope = m_gate.enter();
        if (!scope)
            return Success{};
        Outcome outcome = m_display->pressPasteChord();
        m_borrowedUntil = std::chrono::steady_clock::now() + borrowedKeyHold;
        return outcome;
    }

    void waitForModifiers() {
        const Instant end = std::chrono::steady_clock::now() + longestWaitForModifiers;
        while (!m_stopping && m_display->isModifierHeld() && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(modifierPollInterval);
    }

    InjectionGate& m_gate;
    const Print m_print;
    const std::string m_displayName;
    const int m_requests;
    std::atomic<bool> m_stopping = false;
    // Worker.
    std::unique_ptr<X11PasteDisplay> m_display;
    Instant m_borrowedUntil;
    std::thread m_thread;
};

}  // namespace

std::unique_ptr<PasteKeystroke> makeX11PasteKeystroke(InjectionGate& gate, Print print) {
    return std::make_unique<X11PasteKeystroke>(gate, std::move(print));
}

}  // namespace nulo
