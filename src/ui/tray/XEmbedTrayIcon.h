#pragma once

#include <QSystemTrayIcon>

#include "desktop/StatusItem.h"
#include "ui/MenuWidget.h"

namespace nulo {

/// The item as a small window in an X11 tray of the old kind (XEmbed), whenever one runs. Both
/// mouse buttons open the menu.
///
/// Make one only while no StatusNotifierItem host is on the session bus: the toolkit looks for one
/// when the first is made, and would hand its own item to it for the rest of the process.
class XEmbedTrayIcon final : public StatusItem {
  public:
    XEmbedTrayIcon();

    void setIcon(StatusIcon icon) override;
    void setMenu(Menu menu) override;
    bool isShown() const override;

  private:
    /// The entries are given to the widget when it opens, because measuring their titles at the
    /// start would load the fonts.
    Menu m_entries;
    MenuWidget m_menu;
    QSystemTrayIcon m_icon;
};

}  // namespace nulo
