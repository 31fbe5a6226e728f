#include <gmock/gmock.h>

#include "platform/Backends.h"
#include "platform/dbus/BusObject.h"
#include "platform/dbus/SessionLock.h"
#include "rig/process/ChildProcess.h"
#include "support/TrayPanel.h"

namespace nulo {
namespace {

/// The desktop's service, as another program: keeps "ID replaced: text [button]".
struct NotificationService final : BusObject {
    explicit NotificationService(const QDBusConnection& bus)
        : BusObject(bus, "/org/freedesktop/Notifications", "org.freedesktop.Notifications") {}
    QVariantMap properties() const override { return {}; }
    QString introspect(const QString&) const override { return {}; }
    QDBusMessage answer(const QDBusMessage& message) override {
        const QVariantList values = message.arguments();
        if (message.member() == "GetCapabilities")
            return message.createReply(capabilities);
        if (message.member() == "CloseNotification") {
            shown.push_back("closed " + values[0].toString().toStdString());
            return message.createReply();
        }
        const QStringList actions = values[5].toStringList();
        shown.push_back(values[1].toString().toStdString() + ": " +
                        values[4].toString().toStdString() +
                        (actions.isEmpty() ? "" : " [" + actions.value(1).toStdString() + "]"));
        button = actions.value(0);
        message.setDelayedReply(isMute);
        return message.createReply(7u);
    }
    void click(uint notice, const QString& key) { emitSignal("ActionInvoked", {notice, key}); }

    std::vector<std::string> shown;
    QStringList capabilities{"body", "actions"};
    QString button;
    bool isMute = false;
};

// Notices that pile up, that another program's words turn into markup, or that need a service.
TEST(DesktopNotifications, replacesTheNoticeThatIsShown) {
    testBus().start();
    const QtProgram<> program;
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
    EXPECT_THAT(service.shown,
                testing::ElementsAre("0: a &lt; b", "7: " + std::string(400, 'x') + "..."));

    // Buttons where there are any, which do what they say once and for the notice that is shown.
    std::string done;
    const auto offer = [&](const std::string& what) {
        service.shown.clear();
        notifications->offer({"Title", what}, {"Again", [&, what] { done += what; }});
        return processUntil([&] { return !service.shown.empty(); });
    };
    ASSERT_TRUE(offer("one"));
    const QString first = service.button;
    ASSERT_TRUE(offer("two"));
    EXPECT_THAT(service.shown, testing::ElementsAre("7: two [Again]"));
    for (const auto& [notice, key] :
         {std::pair{7u, first}, {8u, service.button}, {7u, service.button}, {7u, service.button}})
        service.click(notice, key);
    EXPECT_TRUE(processUntil([&] { return !done.empty(); }));
    service.capabilities = QStringList{"body"};
    ASSERT_TRUE(offer("three"));
    EXPECT_THAT(service.shown, testing::ElementsAre("7: three"));
    EXPECT_EQ(done, "two");
    notifications->withdrawOffer();
    ASSERT_TRUE(processUntil([&] { return service.shown.back() == "closed 7"; }));
    ASSERT_TRUE(offer("four"));
    notifications->show({"Another", "notice"});
    notifications->withdrawOffer();
    ASSERT_TRUE(processUntil([&] { return service.shown.back() == "7: notice"; }));
    // Nothing waits for a service that never answers.
    service.isMute = true;
    ASSERT_TRUE(offer("five"));
    notifications->withdrawOffer();
    notifications->show({"Not", "sent"});
    QDBusConnection::disconnectFromBus("notification-service");
    testBus().stop();
}

// The library reads the addresses once a process, when the first bus is asked for. This keeps every
// test of this program off the buses of whoever runs it.
[[maybe_unused]] const int systemBus =
    setenv("DBUS_SYSTEM_BUS_ADDRESS", testBus().address().c_str(), 1);

// An announcement that nobody hears, on either bus and whatever comes with it: the chord that is
// held then keeps the screen from being locked.
TEST(SessionLock, isHeardOf) {
    testBus().start();
    const QtProgram<> program;
    int heard = 0;
    const auto watch = watchSessionLock([&] { ++heard; });
    const std::vector<std::string> announcements[] = {
        {"/org/freedesktop/login1/session/_31", "org.freedesktop.login1.Session.Lock"},
        {"/org/freedesktop/login1", "org.freedesktop.login1.Manager.PrepareForSleep",
         "boolean:true"},
        {"/org/gnome/ScreenSaver", "org.gnome.ScreenSaver.ActiveChanged", "boolean:true"},
        {"/ScreenSaver", "org.freedesktop.ScreenSaver.ActiveChanged", "boolean:true"}};
    for (const auto& announcement : announcements) {
        const int before = heard;
        std::vector<std::string> send{"dbus-send", "--session", "--type=signal"};
        send.insert(send.end(), announcement.begin(), announcement.end());
        // The bus may not know yet who listens.
        const auto isHeard = [&] {
            outputOf(send);
            return processUntil([&] { return heard > before; }, std::chrono::milliseconds(200));
        };
        EXPECT_TRUE(waitUntil(isHeard)) << announcement[1];
    }
    testBus().stop();
}

}  // namespace
}  // namespace nulo
