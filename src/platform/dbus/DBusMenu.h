#pragma once

#include <QTimer>
#include <functional>
#include <vector>

#include "desktop/StatusItem.h"
#include "platform/dbus/BusObject.h"
#include "platform/dbus/DBusMenuTypes.h"

namespace nulo {

/// Offers a Menu over com.canonical.dbusmenu. The ids of a menu whose rows changed are never used
/// again, so that a click on what a host still shows of it does nothing, rather than something
/// else. Main thread.
class DBusMenu final : public BusObject {
  public:
    DBusMenu(const QDBusConnection& connection, const QString& path);

    /// Called when the menu is about to be opened; it may call setMenu().
    std::function<void()> onAboutToShow;

    void setMenu(Menu menu);
    /// Some hosts point at a menu that needs attention.
    void setNeedsAttention(bool needsAttention) { m_needsAttention = needsAttention; }

  protected:
    QVariantMap properties() const override;
    QDBusMessage answer(const QDBusMessage& message) override;
    QString introspect(const QString& path) const override;

  private:
    bool sameRows(const Menu& menu) const;
    void updateChecks(Menu menu);
    bool isRow(int id) const;
    QVariantMap rowProperties(int id, const QStringList& names) const;
    dbusmenu::Layout layout(int id, int depth, const QStringList& names) const;
    QList<dbusmenu::ItemProperties> groupProperties(const QVariantList& arguments) const;
    QDBusMessage answerProperty(const QDBusMessage& message) const;
    QDBusMessage answerAboutToShow(const QDBusMessage& message);
    QDBusMessage answerAboutToShowGroup(const QDBusMessage& message);
    QDBusMessage answerEvents(const QDBusMessage& message);
    bool aboutToShow();
    void handleEvent(int id, const QString& type);
    void runChosen();

    Menu m_menu;
    int m_firstId = 1;  // of the first entry; the others follow
    uint m_revision = 1;
    bool m_needsAttention = false;
    std::vector<std::function<void()>> m_chosen;  // not run yet
    QTimer m_runChosen;
};

}  // namespace nulo
