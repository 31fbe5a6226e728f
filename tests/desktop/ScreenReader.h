#pragma once

#include <string>
#include <vector>

#include "rig/desktop/DesktopSession.h"

namespace nulo {

/// Reads and presses what Nulo shows, the way a screen reader does: what it does not find, a blind
/// user does not either. One a process, since libatspi keeps its bus for ever.
class ScreenReader {
  public:
    explicit ScreenReader(const DesktopSession& desktop);

    /// By its title.
    bool waitForWindow(const std::string& title) const;
    /// Names of the buttons shown in the window, in reading order.
    std::vector<std::string> buttonsIn(const std::string& window) const;
    /// Presses the button of that name; false when there is none.
    bool press(const std::string& window, const std::string& button) const;

  private:
    ChildProcess m_launcher;
};

}  // namespace nulo
