#pragma once

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "desktop/StatusItem.h"

namespace nulo {

/// Keeps what it is given to show.
class FakeStatusItem final : public StatusItem {
  public:
    StatusIcon icon;
    Menu menu;
    bool shown = false;

    void setIcon(StatusIcon newIcon) override { icon = std::move(newIcon); }
    void setMenu(Menu newMenu) override { menu = std::move(newMenu); }
    bool isShown() const override { return shown; }

    void changeShown(bool now) {
        shown = now;
        onShownChanged();
    }
};

/// Chooses the entry with that title as a user does; throws when there is none.
inline void choose(const Menu& menu, const std::string& title) {
    const auto found = std::find_if(menu.begin(), menu.end(),
                                    [&](const MenuEntry& entry) { return entry.title == title; });
    if (found == menu.end() || !found->action)
        throw std::runtime_error("nothing to choose: " + title);
    const auto action = found->action;  // the menu may be replaced meanwhile
    action();
}

/// What the rows are called: all, or those that carry a mark.
inline std::vector<std::string> titles(const Menu& menu, bool onlyChecked = false) {
    std::vector<std::string> all;
    for (const MenuEntry& entry : menu)
        if (entry.checked || !onlyChecked)
            all.push_back(entry.title);
    return all;
}

}  // namespace nulo
