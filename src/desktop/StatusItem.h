#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace nulo {

/// One row of a menu, as data: the tray's menu protocol and a widget show it each in their own way.
/// Titles are UTF-8 and shown in one line as they are: '&' and '_' mark no mnemonic, and the maker
/// of the menu has cut a title that is too long.
struct MenuEntry {
    enum class Kind {
        action,
        choice,     // one of a group of which at most one is checked; a group is a run of choices
        header,     // disabled, names what follows
        warning,    // an action to be drawn in the warning colour, semibold
        separator,  // nothing else is set
    };
    Kind kind = Kind::separator;
    std::string title;
    std::function<void()> action;  // may replace or destroy the menu it is in
    bool checked = false;
    std::string shortcut;  // a key sequence such as "Ctrl+Q", or empty
};
using Menu = std::vector<MenuEntry>;

/// A square picture: width * width pixels, row by row from the top, 0xAARRGGBB not premultiplied.
struct IconPixels {
    int width = 0;
    std::vector<std::uint32_t> argb;
};

struct StatusIcon {
    /// Draws the icon for any width in device pixels, 1…1024. Main thread.
    std::function<IconPixels(int width)> draw;
    std::string description;  // for screen readers and tooltips
    bool needsAttention = false;
    /// The name by which icon themes have the same icon in the panel's own colours.
    std::string symbolicName;
    std::string detail;  // more for the tooltip, in whole sentences; may be empty
};

/// The program's item in the desktop's tray. It comes and goes with the tray by itself. Main
/// thread.
class StatusItem {
  public:
    /// Called when the menu is about to be opened: the last moment for setMenu().
    std::function<void()> onAboutToShow;
    /// Called when isShown() has become known or has changed, never inside a call of this class.
    /// Trays of the old X11 kind do not tell.
    std::function<void()> onShownChanged;

    virtual ~StatusItem() = default;
    virtual void setIcon(StatusIcon icon) = 0;
    /// Replaces the whole menu.
    virtual void setMenu(Menu menu) = 0;
    /// Whether a tray shows the item at the moment.
    virtual bool isShown() const = 0;
};

}  // namespace nulo
