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

    /// Names of the buttons of the window of that title, in reading order, as soon as it is shown;
    /// none when it does not come.
    std::vector<std::string> buttonsIn(const std::string& window) const;
    /// Presses the button of that name; false when there is none.
    bool press(const std::string& window, const std::string& button) const;

  private:
    ChildProcess m_launcher;
};

}  // namespace nulo
