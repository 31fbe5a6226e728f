#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "base/Lifetime.h"
#include "base/MainQueue.h"
#include "base/Print.h"
#include "hotkey/ChordStateMachine.h"
#include "hotkey/EventTap.h"

namespace nulo {

/// Turns the chord, held anywhere in the session, into push-to-talk, and keeps the tap that this
/// needs alive: it waits for the permission, switches a tap on again that was switched off, and
/// replaces one that was lost.
///
/// Main thread. Key events are judged on the tap's thread, so that a busy main thread never holds
/// up the user's keyboard; what they lead to is posted to the main queue, in order.
class GlobalKeyMonitor {
  public:
    /// `source` and `mainQueue` outlive the monitor. `openSettings` shows the user where to give
    /// the permission. `chord` is what the lines that are printed call it.
    GlobalKeyMonitor(EventTapSource& source, MainQueue& mainQueue, Print print,
                     std::function<void()> openSettings, std::string chord = "Option+Space");
    ~GlobalKeyMonitor();
    GlobalKeyMonitor(const GlobalKeyMonitor&) = delete;
    GlobalKeyMonitor& operator=(const GlobalKeyMonitor&) = delete;

    /// Called when the chord went down, and when it was let go: on main, never inside another call.
    /// Set them before start().
    std::function<void()> onRecordStart;
    std::function<void()> onRecordStop;
    /// Called on main when the permission was given (true) or taken away (false). Set it before
    /// start().
    std::function<void(bool)> onAccessibilityChanged;

    /// Call it once. Without the permission, the monitor polls for it.
    void start();
    /// Lets go of the keyboard and of all timers.
    void stop();
    void openAccessibilitySettings() const;

    /// The state when it was last looked at: every 5 s, or every 2 s while waiting for the
    /// permission.
    bool isAccessibilityGranted() const { return m_isAccessibilityGranted; }
    bool isEventTapAlive() const { return m_isEventTapAlive; }

  private:
    void checkAndSetup();
    void retry();
    void healthCheck();
    void setupEventTap();
    void tearDownEventTap();
    void postAccessibilityChanged();

    // Tap thread.
    EventFate handle(const KeyEvent& event);
    void post(std::function<void()> GlobalKeyMonitor::*callback);

    EventTapSource& m_source;
    MainQueue& m_mainQueue;
    const Print m_print;
    const std::function<void()> m_openSettings;
    const std::string m_chordTitle;

    bool m_isAccessibilityGranted = false;
    bool m_isEventTapAlive = false;
    std::unique_ptr<MainQueue::Timer> m_retryTimer;
    std::unique_ptr<MainQueue::Timer> m_healthCheckTimer;

    // Guards what the tap's thread touches; held while a tap is made, so that its first event finds
    // it, but never while one is destroyed, which waits for the handler.
    std::mutex m_mutex;
    ChordStateMachine m_chord;
    std::unique_ptr<EventTap> m_eventTap;  // changed on main only

    Lifetime m_lifetime;
};

}  // namespace nulo
