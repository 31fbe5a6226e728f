#pragma once

#include <optional>
#include <string>
#include <vector>

#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo {

/// A private X server without a screen (Xvfb), which $DISPLAY of this process names while it lives.
class VirtualDisplay {
  public:
    enum class WindowManager { none, openbox, kwin };

    /// Returns when clients can connect and the window manager runs; throws when they do not.
    explicit VirtualDisplay(WindowManager windowManager = WindowManager::none,
                            std::string screen = "1280x800x24");
    ~VirtualDisplay();
    VirtualDisplay(const VirtualDisplay&) = delete;
    VirtualDisplay& operator=(const VirtualDisplay&) = delete;

    /// Such as ":7".
    const std::string& display() const { return m_display; }
    /// As if it had crashed.
    void kill();

  private:
    void startServer(const std::string& screen);
    void startWindowManager(WindowManager windowManager);

    std::string m_display;
    std::optional<std::string> m_displayBefore;
    std::optional<ChildProcess> m_server;
    TemporaryFolder m_home;  // the window manager's
    std::optional<ChildProcess> m_windowManager;
};

}  // namespace nulo
