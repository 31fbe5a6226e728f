#include "ui/MenuWidget.h"

#include <QActionGroup>
#include <QKeyEvent>
#include <QKeySequence>
#include <QStyleOptionMenuItem>

namespace nulo {
namespace {

/// Doubles what would mark a mnemonic.
QString displayed(const std::string& title) {
    return QString::fromStdString(title).replace(u'&', QStringLiteral("&&"));
}

}  // namespace

int MenuWidget::ScrollingStyle::styleHint(StyleHint hint, const QStyleOption* option,
                                          const QWidget* widget, QStyleHintReturn* data) const {
    return hint == SH_Menu_Scrollable ? 1 : QProxyStyle::styleHint(hint, option, widget, data);
}

MenuWidget::MenuWidget(QWidget* parent) : QMenu(parent) {
    setStyle(&m_style);
}

/// The base class still asks for its style while it goes.
MenuWidget::~MenuWidget() {
    setStyle(nullptr);
}

void MenuWidget::fill(const Menu& entries) {
    using Kind = MenuEntry::Kind;
    m_warnings.clear();
    clear();
    QActionGroup* group = nullptr;
    for (const MenuEntry& entry : entries) {
        if (entry.kind != Kind::choice)
            group = nullptr;
        if (entry.kind == Kind::separator) {
            addSeparator();
            continue;
        }
        auto* const row = new QAction(displayed(entry.title), this);
        addAction(row);
        row->setEnabled(entry.kind != Kind::header);
        if (!entry.shortcut.empty()) {
            row->setShortcut(QKeySequence(QString::fromStdString(entry.shortcut)));
            row->setShortcutVisibleInContextMenu(true);
        }
        if (entry.kind == Kind::warning) {
            QFont semibold = font();
            semibold.setWeight(QFont::DemiBold);
            row->setFont(semibold);
            m_warnings.insert(row);
        }
        if (entry.kind == Kind::choice) {
            if (!group)
                group = new QActionGroup(row);
            row->setCheckable(true);
            row->setActionGroup(group);
            row->setChecked(entry.checked);
        }
        if (entry.action)
            connect(
                row, &QAction::triggered, this, [action = entry.action] { action(); },
                Qt::QueuedConnection);
    }
}

void MenuWidget::keyPressEvent(QKeyEvent* event) {
    const QKeySequence keys(event->keyCombination());
    for (QAction* row : actions())
        if (!row->shortcut().isEmpty() && row->shortcut() == keys) {
            close();
            return row->trigger();
        }
    QMenu::keyPressEvent(event);
}

void MenuWidget::initStyleOption(QStyleOptionMenuItem* option, const QAction* action) const {
    QMenu::initStyleOption(option, action);
    if (!m_warnings.contains(action))
        return;
    // Darker on a light menu, where the bright orange could not be read.
    const bool dark = option->palette.color(QPalette::Window).lightness() < 128;
    const QColor orange = dark ? QColor(255, 159, 10) : QColor(178, 80, 0);
    for (const auto role : {QPalette::Text, QPalette::WindowText, QPalette::ButtonText})
        option->palette.setColor(role, orange);
}

}  // namespace nulo
