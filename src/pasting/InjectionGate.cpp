#include "pasting/InjectionGate.h"

namespace nulo {

InjectionGate::Scope::~Scope() {
    if (m_gate)
        m_gate->m_injecting.store(false, std::memory_order_release);
}

void InjectionGate::setKeyboardHeld(bool held) {
    {
        const std::lock_guard lock(m_mutex);
        m_keyboardHeld = held;
    }
    m_changed.notify_all();
}

InjectionGate::Scope InjectionGate::enter() {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_cancelled || !m_keyboardHeld; });
    if (m_cancelled)
        return Scope(nullptr);
    m_injecting.store(true, std::memory_order_release);
    return Scope(this);
}

void InjectionGate::cancel() {
    {
        const std::lock_guard lock(m_mutex);
        m_cancelled = true;
    }
    m_changed.notify_all();
}

}  // namespace nulo
