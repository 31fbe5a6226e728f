#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "base/Environment.h"
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

/// Everything that can wait (for the user's fingers, the key tap, the server) happens on one worker
/// thread, which sleeps until it is asked for a keystroke or the server has something to say.
class X11PasteKeystroke final : public PasteKeystroke {
  public:
    explicit X11PasteKeystroke(InjectionGate& gate)
        : m_gate(gate),
          m_displayName(environmentVariable("DISPLAY")),
          m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (m_wake < 0)
            throw std::system_error(errno, std::generic_category(), "eventfd");
        m_thread = std::thread([this] { run(); });
    }

    ~X11PasteKeystroke() override {
        m_stopping = true;
        m_gate.cancel();
        wake();
        m_thread.join();
        close(m_wake);
    }

    void post(Report report) override {
        {
            const std::lock_guard lock(m_mutex);
            m_requests.push_back(std::move(report));
        }
        wake();
    }

  private:
    void wake() {
        const std::uint64_t one = 1;
        // Can only fail when the worker was woken 2^64 times without noticing.
        [[maybe_unused]] const auto written = write(m_wake, &one, sizeof one);
    }

    void run() {
        // Early, so that the first paste is as quick as the others; each paste reports for itself.
        [[maybe_unused]] const Outcome early = connect();
        while (const auto request = waitForRequest()) {
            const Outcome outcome = paste(*request);
            if (!m_stopping && request->onEnd)
                request->onEnd(outcome);
        }
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

    /// Nothing when the worker is to end.
    std::optional<Report> waitForRequest() {
        while (!m_stopping) {
            std::uint64_t ignored = 0;
            [[maybe_unused]] const auto emptied = read(m_wake, &ignored, sizeof ignored);
            if (auto request = takeRequest())
                return request;
            returnBorrowedKeyInTime();
            pollfd sources[] = {{m_wake, POLLIN, 0},
                                {m_display ? m_display->fileDescriptor() : -1, POLLIN, 0}};
            ::poll(sources, 2, millisecondsUntilReturn());
            if (sources[1].revents && !m_display->drain())
                m_display.reset();
        }
        return std::nullopt;
    }

    std::optional<Report> takeRequest() {
        const std::lock_guard lock(m_mutex);
        if (m_stopping || m_requests.empty())
            return std::nullopt;
        Report request = std::move(m_requests.front());
        m_requests.pop_front();
        return request;
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

    Outcome paste(const Report& report) {
        if (Outcome outcome = connect(); !outcome)
            return outcome;
        // While the tap holds the keyboard the server does not tell which keys are down.
        if (!InjectionGate::Scope(m_gate.enter()))
            return Success{};
        waitForModifiers();
        const InjectionGate::Scope scope = m_gate.enter();
        if (!scope)
            return Success{};
        if (report.onSending)
            report.onSending();
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
    const std::string m_displayName;
    const int m_wake;
    std::atomic<bool> m_stopping = false;
    std::mutex m_mutex;
    std::deque<Report> m_requests;
    // Worker.
    std::unique_ptr<X11PasteDisplay> m_display;
    Instant m_borrowedUntil;
    std::thread m_thread;
};

}  // namespace

std::unique_ptr<PasteKeystroke> makeX11PasteKeystroke(InjectionGate& gate) {
    return std::make_unique<X11PasteKeystroke>(gate);
}

}  // namespace nulo
