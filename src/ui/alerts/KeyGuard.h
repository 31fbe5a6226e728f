#pragma once

#include <QKeyEvent>
#include <QObject>

#include "base/Clock.h"

namespace nulo {

/// Keeps what is typed into another program from answering a window that comes up in between: keys
/// reach the window once none was pressed or let go for a second since it last became the active
/// one. Letters, which answer nothing, begin that second again, as does a held key's repeating;
/// keys with Shift, Control, Alt or Super do not answer. The mouse is not held up. Main thread.
class KeyGuard final : public QObject {
  public:
    /// `clock` outlives the guard.
    explicit KeyGuard(const Clock& clock) : m_clock(clock), m_quietSince(clock.now()) {}

    /// The window has become the active one.
    void begin() { m_quietSince = m_clock.now(); }

  protected:
    /// Filters the events of the QWindow, through which every key comes.
    bool eventFilter(QObject* window, QEvent* event) override;

  private:
    const Clock& m_clock;
    Clock::Instant m_quietSince;
};

}  // namespace nulo
