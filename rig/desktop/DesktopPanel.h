#pragma once

#include <QImage>
#include <QRect>
#include <memory>
#include <vector>

#include "rig/desktop/DesktopSession.h"

namespace nulo {

/// A desktop's own panel (Xfce's) along the upper edge of the screen, with nothing in it but a tray
/// at its right end: whatever it shows is Nulo's icon. Needs a QCoreApplication.
class DesktopPanel {
  public:
    static constexpr int height = 28;  // pixels

    enum class Look { light, dark };
    /// Returns when the panel is on the screen and takes items; throws when that fails. `desktop`
    /// outlives it.
    explicit DesktopPanel(DesktopSession& desktop, Look look = Look::dark);

    enum class Icon { none, idle, recording, warning };
    /// Whether the panel comes to show this icon.
    bool waitForIcon(Icon icon) const;
    /// Clicks the icon with the mouse and waits for the menu: where it is on the screen, nothing
    /// when none opens.
    QRect openMenu();
    void closeMenu();

  private:
    static QRect iconPlace(const QImage& screen);
    static Icon iconOn(const QImage& screen);
    std::vector<QRect> popups() const;

    DesktopSession& m_desktop;
    std::unique_ptr<ChildProcess> m_settingsService;
    std::unique_ptr<ChildProcess> m_panel;
};

}  // namespace nulo
