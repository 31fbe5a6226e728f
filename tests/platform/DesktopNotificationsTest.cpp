#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>

#include "platform/Backends.h"
#include "platform/TrayDesktop.h"
#include "platform/dbus/BusObject.h"
#include "support/TrayPanel.h"

namespace nulo {
namespace {

using testing::ElementsAre;

/// The desktop's service, as another program: keeps "ID replaced: text".
struct NotificationService final : BusObject {
    explicit NotificationService(const QDBusConnection& bus)
        : BusObject(bus, "/org/freedesktop/Notifications", "org.freedesktop.Notifications") {}
    QVariantMap properties() const override { return {}; }
    QString introspect(const QString&) const override { return {}; }
    QDBusMessage answer(const QDBusMessage& message) override {
        const QVariantList values = message.arguments();
        shown.push_back(values[1].toString().toStdString() + ": " +
                        values[4].toString().toStdString());
        return message.createReply(7u);
    }
    std::vector<std::string> shown;
};

// Notices that pile up, that another program's words turn into markup, or that need a service.
TEST(DesktopNotifications, replacesTheNoticeThatIsShown) {
    testBus().start();
    int count = 1;
    char name[] = "test";
    char* arguments[] = {name, nullptr};
    const QCoreApplication application(count, arguments);
    const auto notifications = makeDesktopNotifications();
    notifications->show({"Nobody", "there"});

    QDBusConnection bus = QDBusConnection::connectToBus(QString::fromStdString(testBus().address()),
                                                        "notification-service");
    NotificationService service(bus);
    ASSERT_TRUE(bus.registerService("org.freedesktop.Notifications"));
    notifications->show({"Replaced before", "it could be sent"});
    notifications->show({"First", "a < b"});
    ASSERT_TRUE(processUntil([&] { return service.shown.size() == 1; }));
    notifications->show({"Second", std::string(100'000, 'x')});
    ASSERT_TRUE(processUntil([&] { return service.shown.size() == 2; }));
    EXPECT_THAT(service.shown, ElementsAre("0: a &lt; b", "7: " + std::string(400, 'x') + "..."));
    QDBusConnection::disconnectFromBus("notification-service");
    testBus().stop();
}

}  // namespace
}  // namespace nulo
