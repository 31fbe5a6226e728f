#include "ui/alerts/KeyGuard.h"

#include <chrono>

namespace nulo {
namespace {

constexpr std::chrono::seconds quietTime(1);

bool canAnswer(const QKeyEvent& event) {
    const int key = event.key();
    return key == Qt::Key_Return || key == Qt::Key_Enter || key == Qt::Key_Space ||
           key == Qt::Key_Select || key == Qt::Key_Escape;
}

/// True for a key that belongs to a text rather than to the window's operation.
bool isTyped(const QKeyEvent& event) {
    const bool isCommand =
        event.modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier);
    return !isCommand && !event.text().isEmpty() && event.text()[0].isPrint();
}

bool hasModifier(const QKeyEvent& event) {
    return event.modifiers() & ~(Qt::KeypadModifier | Qt::GroupSwitchModifier);
}

}  // namespace

bool KeyGuard::eventFilter(QObject* window, QEvent* event) {
    if (event->type() != QEvent::KeyPress && event->type() != QEvent::KeyRelease)
        return QObject::eventFilter(window, event);
    const auto& key = static_cast<const QKeyEvent&>(*event);
    const bool isQuiet = m_clock.now() - m_quietSince >= quietTime;
    if (isQuiet && !key.isAutoRepeat() && (canAnswer(key) ? !hasModifier(key) : !isTyped(key)))
        return false;
    m_quietSince = m_clock.now();
    return true;
}

}  // namespace nulo
