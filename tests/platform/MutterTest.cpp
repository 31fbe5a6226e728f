#include <gtest/gtest.h>

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <string>

#include "base/FileIO.h"
#include "platform/Backends.h"
#include "platform/WaylandBackends.h"
#include "platform/session/BackendChoice.h"
#include "rig/display/HeadlessCompositor.h"
#include "rig/process/WaitUntil.h"
#include "support/TestBus.h"

namespace nulo {
namespace {

constexpr std::uint32_t shiftKey = 42, insertKey = 110;  // the kernel's codes

/// Keys as from a keyboard, by the compositor's own interface.
class MutterKeys {
  public:
    MutterKeys() {
        const QDBusMessage session = call("/org/gnome/Mutter/RemoteDesktop", "", "CreateSession");
        m_session = session.arguments().value(0).value<QDBusObjectPath>().path();
        call(m_session, ".Session", "Start");
    }
    void press(std::uint32_t code, bool isDown) {
        call(m_session, ".Session", "NotifyKeyboardKeycode", {code, isDown});
    }

  private:
    QDBusMessage call(const QString& path, const char* part, const char* method,
                      const QVariantList& arguments = {}) {
        const QString service = "org.gnome.Mutter.RemoteDesktop";
        auto message = QDBusMessage::createMethodCall(service, path, service + part, method);
        message.setArguments(arguments);
        return m_bus.call(message);
    }

    QDBusConnection m_bus =
        QDBusConnection::connectToBus(QString::fromStdString(testBus().address()), "mutter-keys");
    QString m_session;
};

// Faults: a text that Mutter does not hand on to its own programs while none of our windows has the
// focus; a session whose compositor offers less than it is taken to offer.
TEST(Mutter, handsOnWhatIsPutOnTheClipboardThroughXwayland) {
    testBus().start();
    const HeadlessCompositor mutter(
        HeadlessCompositor::Kind::mutter,
        {.hasXwayland = true, .environment = {"DBUS_SESSION_BUS_ADDRESS=" + testBus().address()}});
    for (const std::string& variable : mutter.environment())
        if (const auto equals = variable.find('='); equals != std::string::npos)
            setenv(variable.substr(0, equals).c_str(), variable.c_str() + equals + 1, 1);

    SessionFacts facts = sessionFacts();
    lookAtDisplays(facts);
    const BackendChoice choice = chooseBackends(facts);
    EXPECT_EQ(choice.toolkitPlatform, "xcb");
    EXPECT_EQ(choice.clipboard.front().backend, Backend::qt);
    EXPECT_EQ(choice.overlay.front().backend, Backend::x11);

    setenv("QT_QPA_PLATFORM", choice.toolkitPlatform.c_str(), 1);
    int argumentCount = 1;
    char name[] = "test";
    char* arguments[] = {name, nullptr};
    const QApplication application(argumentCount, arguments);
    const std::filesystem::path text = mutter.folder() / "text";
    const ChildProcess window({NULO_TEST_SUPPORT "/gtk-text-window.py", text},
                              mutter.options("gtk.log"));
    const auto pasteboard = makeQtPasteboard();
    pasteboard->setString("déjà vu");
    MutterKeys keys;
    // The first ones are lost while the seat gets its first keyboard.
    EXPECT_TRUE(waitUntil(
        [&] {
            QCoreApplication::processEvents();
            for (const auto& [code, isDown] : {std::pair{shiftKey, true},
                                               {insertKey, true},
                                               {insertKey, false},
                                               {shiftKey, false}})
                keys.press(code, isDown);
            return readFile(text, 1'000'000).value_or("").starts_with("déjà vu");
        },
        std::chrono::seconds(60)))
        << readFile(text, 1'000'000).value_or("no text") << mutter.log();
}

}  // namespace
}  // namespace nulo
