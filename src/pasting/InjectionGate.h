#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace nulo {

/// Keeps the key tap and the paste keystroke out of each other's way: keys must never be injected
/// while the tap holds the keyboard, and the tap must not take injected keys for the user's. Shared
/// by both; outlives both.
class InjectionGate {
  public:
    class Scope {
      public:
        explicit Scope(InjectionGate* gate) : m_gate(gate) {}
        Scope(Scope&& other) noexcept : m_gate(std::exchange(other.m_gate, nullptr)) {}
        Scope& operator=(Scope&&) = delete;
        ~Scope();
        /// False when the wait was cancelled: nothing may be injected.
        explicit operator bool() const { return m_gate != nullptr; }

      private:
        InjectionGate* m_gate;
    };

    // Tap thread.
    /// Whether the tap holds the keyboard (frozen or grabbed).
    void setKeyboardHeld(bool held);
    /// Set from the moment a Scope is entered until it is left: raw events of the injecting device
    /// are not the user's.
    bool isInjecting() const { return m_injecting.load(std::memory_order_acquire); }

    // Paste thread.
    /// Waits until the tap does not hold the keyboard, which can take as long as the user holds the
    /// chord.
    [[nodiscard]] Scope enter();
    /// Makes present and later waits return a false Scope. Any thread.
    void cancel();

  private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_keyboardHeld = false;
    bool m_cancelled = false;
    std::atomic<bool> m_injecting = false;
};

}  // namespace nulo
