#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "desktop/StatusItem.h"

namespace nulo {

/// Shows the preferred item wherever a tray takes it, and the fallback exactly as long as none
/// does. Nothing is shown before the preferred one has answered.
class TrayItem final : public StatusItem {
  public:
    using Make = std::function<std::unique_ptr<StatusItem>()>;
    /// `makeFallback` may return nothing.
    TrayItem(std::unique_ptr<StatusItem> preferred, Make makeFallback);

    void setIcon(StatusIcon icon) override;
    void setMenu(Menu menu) override;
    bool isShown() const override;

  private:
    void choose();
    void announceShown() const;

    const Make m_makeFallback;
    std::optional<StatusIcon> m_icon;
    Menu m_menu;
    std::unique_ptr<StatusItem> m_fallback;
    std::unique_ptr<StatusItem> m_preferred;
};

}  // namespace nulo
