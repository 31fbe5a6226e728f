#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/FileIO.h"
#include "platform/WaylandBackends.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"
#include "support/TestBus.h"

namespace nulo {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* session = "/org/freedesktop/portal/desktop/session/one";

/// A desktop's portal, on a connection of its own.
class FakePortal final : public QDBusVirtualObject {
  public:
    FakePortal() {
        m_bus.registerVirtualObject("/org/freedesktop/portal/desktop", this);
        m_bus.registerService("org.freedesktop.portal.Desktop");
    }
    ~FakePortal() override { QDBusConnection::disconnectFromBus("fake-portal"); }

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& bus) override {
        const QVariantList arguments = message.arguments();
        if (message.member() == "NotifyKeyboardKeycode") {
            keys += (arguments[3].toUInt() ? "+" : "-") + arguments[2].toString().toStdString();
            return bus.send(message.createReply());
        }
        const auto options = qdbus_cast<QVariantMap>(arguments.last());
        calls.push_back(message.member().toStdString());
        if (calls.back() == "BindShortcuts")
            trigger = preferredTrigger(arguments[1].value<QDBusArgument>());
        if (options.contains("restore_token"))
            calls.back() += " " + options["restore_token"].toString().toStdString();
        const QString request = "/org/freedesktop/portal/desktop/request/" +
                                message.service().mid(1).replace('.', '_') + "/" +
                                options["handle_token"].toString();
        bus.send(message.createReply(QVariant::fromValue(QDBusObjectPath(request))));
        QDBusMessage response =
            QDBusMessage::createSignal(request, "org.freedesktop.portal.Request", "Response");
        response << (refuses ? 1u : 0u)
                 << QVariantMap{{"session_handle", session}, {"restore_token", nextToken}};
        return bus.send(response);
    }
    void closeSession() {
        m_bus.send(QDBusMessage::createSignal(session, "org.freedesktop.portal.Session", "Closed"));
    }

    bool refuses = false;
    QString nextToken = "first";
    std::vector<std::string> calls;
    std::string keys;
    QString trigger;

  private:
    static QString preferredTrigger(const QDBusArgument& shortcuts) {
        QString id;
        QVariantMap properties;
        shortcuts.beginArray();
        shortcuts.beginStructure();
        shortcuts >> id >> properties;
        shortcuts.endStructure();
        shortcuts.endArray();
        return properties["preferred_trigger"].toString();
    }

    QDBusConnection m_bus =
        QDBusConnection::connectToBus(testBus().address().c_str(), "fake-portal");
};

class PortalTest : public testing::Test {
  protected:
    PortalTest() {
        testBus().start();
        m_portal = std::make_unique<FakePortal>();
    }
    template <typename Condition>
    static bool eventually(Condition condition) {
        return waitUntil([&] {
            QCoreApplication::processEvents();
            return condition();
        });
    }
    /// The end of one keystroke: "pasted", or why not.
    std::string paste(PasteKeystroke& keystroke) {
        std::optional<std::string> end;
        keystroke.post({.onSending = [] {},
                        .onEnd =
                            [&end](const Outcome& outcome) {
                                end = outcome ? "pasted" : outcome.error().description;
                            }});
        EXPECT_TRUE(eventually([&] { return end.has_value(); }));
        return end.value_or("no end");
    }

    int m_argumentCount = 1;
    char m_name[5] = "test";
    char* m_arguments[2] = {m_name, nullptr};
    QCoreApplication m_application{m_argumentCount, m_arguments};
    TemporaryFolder m_folder;
    const std::filesystem::path m_token = m_folder / "token";
    std::unique_ptr<FakePortal> m_portal;
};

// Faults: a question at each start or paste; a keystroke without an end when the user says no, or
// takes the leave back.
TEST_F(PortalTest, pastesWithTheLeaveThatWasGivenOnce) {
    auto keystroke = makePortalPaste(m_token, [](std::string_view) {});
    EXPECT_EQ(paste(*keystroke), "pasted");
    EXPECT_EQ(m_portal->keys, "+42+110-110-42");
    EXPECT_THAT(m_portal->calls, ElementsAre("CreateSession", "SelectDevices", "Start"));
    EXPECT_EQ(readFile(m_token, 100), "first");
    m_portal->calls.clear();
    m_portal->nextToken = "second";
    m_portal->closeSession();
    EXPECT_TRUE(
        eventually([&] { return paste(*keystroke) == "pasted" && m_portal->calls.size(); }));
    EXPECT_THAT(m_portal->calls, ElementsAre("CreateSession", "SelectDevices first", "Start"));
    EXPECT_EQ(readFile(m_token, 100), "second");

    m_portal->refuses = true;
    m_portal->calls.clear();
    keystroke.reset();
    keystroke = makePortalPaste(m_token, [](std::string_view) {});
    for (int i = 0; i < 2; ++i)
        EXPECT_THAT(paste(*keystroke), HasSubstr("it was refused"));
    EXPECT_THAT(m_portal->calls, ElementsAre("CreateSession"));
}

// Faults: a refused shortcut that is asked for again and again; a desktop without keys for it that
// looks as if all were well.
TEST_F(PortalTest, saysThatThereIsNoShortcut) {
    m_portal->refuses = true;
    std::string printed;
    const auto source = makePortalShortcuts([&](std::string_view line) { printed = line; },
                                            parsedChord("ctrl+super+d").value());
    EXPECT_TRUE(eventually([&] { return !printed.empty(); }));
    EXPECT_THAT(printed, HasSubstr("it was refused"));
    EXPECT_FALSE(source->isTrusted());
    m_portal->refuses = false;
    m_portal.reset();
    m_portal = std::make_unique<FakePortal>();
    bool isObstructed = false;
    source->onObstructed = [&](bool obstructed) { isObstructed = obstructed; };
    EXPECT_TRUE(eventually([&] { return source->isTrusted(); }));
    EXPECT_TRUE(isObstructed);
    EXPECT_EQ(m_portal->trigger, "CTRL+LOGO+d");
    EXPECT_THAT(m_portal->calls, ElementsAre("CreateSession", "BindShortcuts"));
}

}  // namespace
}  // namespace nulo
