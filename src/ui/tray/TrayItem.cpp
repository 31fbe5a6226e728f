#include "ui/tray/TrayItem.h"

#include <utility>

namespace nulo {

TrayItem::TrayItem(std::unique_ptr<StatusItem> preferred, Make makeFallback)
    : m_makeFallback(std::move(makeFallback)), m_preferred(std::move(preferred)) {
    m_preferred->onShownChanged = [this] {
        choose();
        announceShown();
    };
    m_preferred->onAboutToShow = [this] {
        if (const auto aboutToShow = onAboutToShow)
            aboutToShow();
    };
}

void TrayItem::setIcon(StatusIcon icon) {
    m_icon = icon;
    m_preferred->setIcon(icon);
    if (m_fallback)
        m_fallback->setIcon(std::move(icon));
}

void TrayItem::setMenu(Menu menu) {
    m_menu = menu;
    m_preferred->setMenu(menu);
    if (m_fallback)
        m_fallback->setMenu(std::move(menu));
}

bool TrayItem::isShown() const {
    return m_preferred->isShown() || (m_fallback && m_fallback->isShown());
}

void TrayItem::choose() {
    if (m_preferred->isShown()) {
        m_fallback.reset();
        return;
    }
    if (m_fallback)
        return;
    m_fallback = m_makeFallback();
    if (!m_fallback)
        return;
    m_fallback->onAboutToShow = m_preferred->onAboutToShow;
    m_fallback->onShownChanged = [this] { announceShown(); };
    m_fallback->setMenu(m_menu);
    if (m_icon)
        m_fallback->setIcon(*m_icon);
}

void TrayItem::announceShown() const {
    if (const auto shownChanged = onShownChanged)
        shownChanged();
}

}  // namespace nulo
