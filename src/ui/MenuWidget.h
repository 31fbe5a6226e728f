#pragma once

#include <QMenu>
#include <QProxyStyle>
#include <set>

#include "desktop/StatusItem.h"

namespace nulo {

/// A menu of the toolkit's own that shows a Menu. Choosing an entry runs its action after the menu
/// has closed, so that the action may fill the menu anew or destroy it. The entries' shortcuts work
/// in the open menu and, once it was filled, in the window of its parent. Main thread.
class MenuWidget final : public QMenu {
  public:
    explicit MenuWidget(QWidget* parent = nullptr);
    ~MenuWidget() override;

    /// Replaces all entries.
    void fill(const Menu& entries);

  protected:
    /// An open menu has the keyboard: its shortcuts work here or not at all.
    void keyPressEvent(QKeyEvent* event) override;
    void initStyleOption(QStyleOptionMenuItem* option, const QAction* action) const override;

  private:
    /// More entries than the screen is high are scrolled, not put into columns beyond its edge.
    struct ScrollingStyle final : QProxyStyle {
        int styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                      QStyleHintReturn* data) const override;
    };

    ScrollingStyle m_style;
    std::set<const QAction*> m_warnings;
};

}  // namespace nulo
