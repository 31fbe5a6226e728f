#include "platform/dbus/SessionLock.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <string>

#include "platform/TrayDesktop.h"
#include "rig/process/ChildProcess.h"
#include "support/TrayPanel.h"

namespace nulo {
namespace {

// The library reads the addresses once a process, when the first bus is asked for.
[[maybe_unused]] const int systemBus =
    setenv("DBUS_SYSTEM_BUS_ADDRESS", testBus().address().c_str(), 1);

// An announcement that nobody hears, on either bus and whatever comes with it: the chord that is
// held then keeps the screen from being locked.
TEST(SessionLock, isHeardOf) {
    testBus().start();
    int argc = 1;
    char name[] = "test";
    char* argv[] = {name, nullptr};
    const QCoreApplication application(argc, argv);
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
