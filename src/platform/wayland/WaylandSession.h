#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/Result.h"
#include "platform/wayland/DataControl.h"
#include "platform/wayland/LayerSurface.h"
#include "platform/wayland/PasteKeyboards.h"
#include "platform/wayland/WaylandConnection.h"

namespace nulo {

/// What Nulo keeps at the compositor, all of it made anew when the compositor was.
struct WaylandDesk {
    explicit WaylandDesk(std::unique_ptr<WaylandConnection> connected);
    ~WaylandDesk();

    std::unique_ptr<WaylandConnection> connection;
    DataControl selections;
    VirtualKeyboard keyboard;
    FakeInput fakeInput;
    LayerShell layers;
    std::map<const void*, std::unique_ptr<LayerSurface>> overlays;  // by their owners
};

/// A thread that alone has to do with the compositor, for the clipboard, the paste and the overlay:
/// selections are served while main is busy, and what one asks for comes after what another asked
/// for before. Main thread, but where said otherwise.
class WaylandSession {
  public:
    /// `display` as in $WAYLAND_DISPLAY. The thread connects at once.
    explicit WaylandSession(std::string display);
    /// Ends the thread; work that has not begun is dropped.
    ~WaylandSession();
    WaylandSession(const WaylandSession&) = delete;
    WaylandSession& operator=(const WaylandSession&) = delete;

    /// Runs on the thread, in order, with what is there at the compositor, or the reason why there
    /// is nothing. Any thread.
    using Work = std::function<void(const Result<WaylandDesk*>& desk)>;
    void post(Work work);

  private:
    void run();
    void runWork();
    Result<WaylandDesk*> connect();
    void waitForMore();
    void wake();

    const std::string m_display;
    const int m_wake;
    std::atomic<bool> m_stopping = false;
    std::mutex m_mutex;
    std::vector<Work> m_work;
    // The thread's.
    std::unique_ptr<WaylandDesk> m_desk;
    std::thread m_thread;
};

}  // namespace nulo
