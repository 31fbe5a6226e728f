#pragma once

#include <memory>
#include <mutex>

#include "hotkey/EventTap.h"

namespace nulo {

/// What stands between something that only tells when the chord goes down and up, and a tap's
/// handler, which is told the events of an Option+Space for it. Outlives its taps.
class ReportedChord {
  public:
    /// One tap at a time; the handler is called on the thread of setDown(), and not after the tap
    /// is gone. Any thread.
    std::unique_ptr<EventTap> makeTap(EventTapSource::Handler handler);
    /// Said twice it counts once: desktops repeat it while the keys are held. Any thread.
    void setDown(bool isDown);
    /// Whether the tap is, as it says. Any thread.
    void setEnabled(bool isEnabled);

  private:
    class Tap;

    std::mutex m_calling;  // held while the handler is called
    bool m_isDown = false;
    // Apart from the other: whoever makes a tap may hold what the handler asks for.
    std::mutex m_mutex;
    EventTapSource::Handler m_handler;
    bool m_isEnabled = false;
};

}  // namespace nulo
