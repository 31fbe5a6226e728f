#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QDBusConnectionInterface>
#include <QDBusObjectPath>
#include <QFileInfo>
#include <QTimer>
#include <optional>

#include "fakes/TrayProgram.h"
#include "platform/Backends.h"
#include "platform/TrayDesktop.h"
#include "support/TrayPanel.h"
#include "ui/tray/StatusIcons.h"

namespace nulo {

PrivateBus& testBus() {
    static PrivateBus bus;
    return bus;
}

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Kind = MenuEntry::Kind;

/// Keeps every test of this program off the bus of whoever runs it.
class PrivateBus final : public testing::Environment {
  public:
    void SetUp() override { testBus(); }
};
[[maybe_unused]] const auto* const environment = testing::AddGlobalTestEnvironment(new PrivateBus);

/// Counts the signals that an item or its menu sends.
class SignalCounter {
  public:
    SignalCounter(const QString& path, const char* name)
        : m_connection(QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                                     "counter" + QString::number(++made))) {
        m_timer.setSingleShot(true);
        // Only an object's slot can be reached by a signal: a timer's is as good as any.
        m_connection.connect({}, path, {}, name, &m_timer, SLOT(start()));
        m_connection.interface()->isServiceRegistered("any");  // the bus knows the wish by then
        QObject::connect(&m_timer, &QTimer::timeout, [this] { ++m_bursts; });
    }
    bool came() {
        return processUntil([this] { return std::exchange(m_bursts, 0) > 0; });
    }
    bool isQuiet() const { return m_bursts == 0; }

  private:
    static inline int made = 0;
    QDBusConnection m_connection;
    QTimer m_timer;
    int m_bursts = 0;
};

class StatusNotifierItemTest : public testing::Test {
  protected:
    StatusNotifierItemTest() {
        testBus().start();
        panel.emplace(testBus().address());
        item = makeStatusNotifierItem();
        item->onShownChanged = [this] { shownChanges.push_back(item->isShown()); };
    }
    ~StatusNotifierItemTest() override {
        item.reset();
        panel.reset();
        testBus().stop();
    }

    bool waitUntilAnnounced(bool shown) {
        return processUntil([&] { return !shownChanges.empty() && shownChanges.back() == shown; });
    }
    bool waitForPanel() { return waitUntilAnnounced(true) && panel->isRegistered(); }
    QStringList labels() {
        QStringList all;
        for (const Panel::Row& row : panel->rows())
            all.append(row.label());
        return all;
    }
    QStringList checked() {
        QStringList all;
        for (const Panel::Row& row : panel->rows())
            if (row.isChecked())
                all.append(row.label());
        return all;
    }
    /// Clicks and lets the action run.
    void click(const QString& label) {
        EXPECT_EQ(panel->click(panel->row(label).id), "") << label.toStdString();
        QCoreApplication::processEvents();
    }

    int m_argumentCount = 1;
    char m_name[5] = "tray";
    char* m_arguments[2] = {m_name, nullptr};
    QCoreApplication application{m_argumentCount, m_arguments};
    std::optional<Panel> panel;
    std::unique_ptr<StatusItem> item;
    std::vector<bool> shownChanges;
};

// A state of the program that a panel does not get to see, or an entry that does another's work.
TEST_F(StatusNotifierItemTest, aPanelReadsAndClicksTheProgramsMenu) {
    TrayProgram program(*item);
    program.controller.updateIcon();
    program.controller.rebuildMenu();
    ASSERT_TRUE(waitForPanel());
    const QList<Panel::Row> missing = panel->rows();
    ASSERT_EQ(missing.size(), 14);
    EXPECT_EQ(missing[0].label(), "⚠️ Accessibilite requise");
    EXPECT_EQ(missing[0].properties["disposition"], "warning");
    EXPECT_EQ(missing[2].properties, QVariantMap({{"type", "separator"}}));
    EXPECT_EQ(missing[3].properties, QVariantMap({{"label", "Mode"}, {"enabled", false}}));
    click("⚠️ Accessibilite requise");
    click("  Ouvrir les Reglages...");
    EXPECT_THAT(program.calls, ElementsAre("permission", "permission"));

    program.controller.accessibilityGranted = true;
    program.controller.rebuildMenu();
    EXPECT_EQ(labels(),
              QStringList({"Mode", "Voice to Text", "Transcription brute", "Commande systeme",
                           "Email", "Francais → Espagnol", "", "Reglages...",
                           "Rechercher une mise a jour...", "", "Quitter"}));
    for (const PromptMode& mode : defaultModes()) {
        click(QString::fromStdString(mode.name));
        EXPECT_EQ(program.configFile.load()->activeMode, mode.id);
        EXPECT_EQ(checked(), QStringList(QString::fromStdString(mode.name)));
    }
    const Panel::Row email = panel->row("Email");
    EXPECT_EQ(email.properties["toggle-type"], "radio");
    EXPECT_EQ(email.properties["toggle-state"], 0);
    const auto shortcut = [&](const QString& label) {
        return qdbus_cast<dbusmenu::Shortcut>(
            panel->row(label).properties["shortcut"].value<QDBusArgument>());
    };
    EXPECT_EQ(shortcut("Quitter"), dbusmenu::Shortcut({{"Control", "q"}}));
    EXPECT_EQ(shortcut("Reglages..."), dbusmenu::Shortcut({{"Control", "comma"}}));

    program.setActiveMode("email");
    EXPECT_FALSE(panel->open());  // marks come as changed properties
    EXPECT_EQ(checked(), QStringList("Email"));
    program.setActiveMode("unknown");
    panel->open();
    EXPECT_THAT(checked(), IsEmpty());
    AppConfig more = program.configFile.load().value();
    more.modes.push_back({"0a1b2c3d", "Notes"});
    program.configFile.save(more);
    EXPECT_TRUE(panel->open());
    EXPECT_TRUE(labels().contains("Notes"));
    program.writeConfig("{ not json");
    EXPECT_TRUE(panel->open());
    EXPECT_EQ(checked(), QStringList("Voice to Text"));
    click("Email");
    EXPECT_FALSE(program.configFile.load());

    click("Rechercher une mise a jour...");
    click("Quitter");
    EXPECT_EQ(program.calls.back(), "quit");
    EXPECT_EQ(program.calls.size(), 4u);
}

// A click on what a panel still shows of an older menu that runs something else.
TEST_F(StatusNotifierItemTest, idsOfAnOlderMenuDoNothing) {
    std::vector<std::string> ran;
    const auto entry = [&](const std::string& title, bool mark = false) {
        return MenuEntry{Kind::choice, title, [&ran, title] { ran.push_back(title); }, mark};
    };
    item->setMenu({entry("a", true), entry("b")});
    ASSERT_TRUE(waitForPanel());
    const int a = panel->row("a").id;
    SignalCounter layouts("/MenuBar", "LayoutUpdated");
    SignalCounter marks("/MenuBar", "ItemsPropertiesUpdated");
    item->setMenu({entry("a"), entry("b", true)});
    EXPECT_TRUE(marks.came());
    EXPECT_TRUE(layouts.isQuiet());
    EXPECT_EQ(panel->row("a").id, a);
    item->setMenu({entry("delete"), entry("c")});
    EXPECT_TRUE(layouts.came());
    EXPECT_EQ(panel->click(a), "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(panel->click(a + 1), "org.freedesktop.DBus.Error.InvalidArgs");

    const auto events = [](std::vector<int> ids) {
        QList<dbusmenu::Event> list;
        for (const int id : ids)
            list.append({id, "clicked", QDBusVariant(0), 0});
        return QVariant::fromValue(list);
    };
    const int c = panel->row("c").id;
    const QDBusMessage reply = panel->menuCall("EventGroup", {events({a, c, c - 1})});
    EXPECT_EQ(qdbus_cast<QList<int>>(reply.arguments().value(0)), QList<int>{a});
    QCoreApplication::processEvents();
    EXPECT_THAT(ran, ElementsAre("c", "delete"));

    // An action that takes its own menu away, with the item.
    item->setMenu({{Kind::action, "end", [this] { item.reset(); }}});
    EXPECT_EQ(panel->click(panel->row("end").id), "");
    EXPECT_TRUE(processUntil([&] { return !item; }));
}

// Properties left out of an answer or sent unasked; a call that ends the program.
TEST_F(StatusNotifierItemTest, answersAnyCall) {
    int ran = 0;
    item->setMenu({{Kind::action, "snake_case & co", [&] { ++ran; }, false, "Ctrl+Q"}, {}});
    ASSERT_TRUE(waitForPanel());
    const int id = panel->rows()[0].id;
    EXPECT_EQ(panel->rows()[0].label(), "snake__case & co");
    EXPECT_THAT(panel->rows({}, 0), IsEmpty());
    EXPECT_EQ(panel->rows({}, std::numeric_limits<int>::max()).size(), 2);
    EXPECT_EQ(panel->rows({"label"})[0].properties.keys(), QStringList("label"));
    EXPECT_EQ(panel->menuCall("GetLayout", {id, -1, QStringList()}).type(),
              QDBusMessage::ReplyMessage);
    const QDBusMessage group = panel->menuCall(
        "GetGroupProperties", {QVariant::fromValue(QList<int>{id, -7}), QStringList("label")});
    const auto found = qdbus_cast<QList<dbusmenu::ItemProperties>>(group.arguments().value(0));
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(found[0].properties.value("label"), "snake__case & co");
    EXPECT_EQ(panel->menuCall("GetProperty", {id, "label"})
                  .arguments()
                  .value(0)
                  .value<QDBusVariant>()
                  .variant(),
              "snake__case & co");
    const QDBusMessage shows =
        panel->menuCall("AboutToShowGroup", {QVariant::fromValue(QList<int>{0, id, 99})});
    EXPECT_EQ(qdbus_cast<QList<int>>(shows.arguments().value(1)), QList<int>{99});

    const struct {
        const char* method;
        QVariantList arguments;
    } bad[] = {{"GetLayout", {99, -1, QStringList()}},
               {"GetLayout", {"0", -1, QStringList()}},
               {"GetLayout", {}},
               {"GetProperty", {id, "toggle-state"}},
               {"GetProperty", {99, "label"}},
               {"Event", {id, "clicked"}},
               {"Event", {-1, "clicked", QVariant::fromValue(QDBusVariant(0)), 0u}},
               {"EventGroup", {QStringList("x")}},
               {"AboutToShow", {99}},
               {"Activate", {0, 0}}};
    for (const auto& call : bad)
        EXPECT_EQ(panel->menuCall(call.method, call.arguments).type(), QDBusMessage::ErrorMessage)
            << call.method;
    for (const char* event : {"hovered", "opened", "closed", ""})
        panel->menuCall("Event", {id, event, QVariant::fromValue(QDBusVariant(0)), 0u});
    EXPECT_EQ(
        panel->call("/StatusNotifierItem", "org.kde.StatusNotifierItem", "Activate", {0, 0}).type(),
        QDBusMessage::ErrorMessage);
    EXPECT_EQ(
        panel
            ->call("/MenuBar", "org.freedesktop.DBus.Properties", "Set",
                   {"com.canonical.dbusmenu", "Version", QVariant::fromValue(QDBusVariant(1u))})
            .type(),
        QDBusMessage::ErrorMessage);
    EXPECT_THAT(panel->call("/MenuBar", "org.freedesktop.DBus.Introspectable", "Introspect")
                    .arguments()
                    .value(0)
                    .toString()
                    .toStdString(),
                HasSubstr("AboutToShowGroup"));
    QCoreApplication::processEvents();
    EXPECT_EQ(ran, 0);
}

// Text that ends the bus connection, or arrives cut.
TEST_F(StatusNotifierItemTest, anyTextGoesThrough) {
    const std::string shalom = "\u05E9\u05DC\u05D5\u05DD";
    const std::vector<std::pair<std::string, std::string>> texts = {
        {std::string(10'000, 'x'), std::string(10'000, 'x')},
        {"two\nlines\t" + shalom + " 👩‍👩‍👧",
         "two\nlines\t" + shalom + " 👩‍👩‍👧"},
        {"cut \xC3", "cut \xEF\xBF\xBD"},
        {std::string("nul\0end", 7), "nulend"},
        {"\xED\xA0\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"", ""}};
    Menu menu;
    for (const auto& [title, label] : texts)
        menu.push_back({Kind::choice, title, [] {}});
    item->setMenu(menu);
    ASSERT_TRUE(waitForPanel());
    const QList<Panel::Row> rows = panel->rows();
    ASSERT_EQ(rows.size(), static_cast<qsizetype>(texts.size()));
    for (std::size_t i = 0; i < texts.size(); ++i)
        EXPECT_EQ(rows[static_cast<qsizetype>(i)].label().toStdString(), texts[i].second);
}

// Pictures that are missing at a size, in the machine's byte order, or of the state before.
TEST_F(StatusNotifierItemTest, aPanelReadsTheIcon) {
    item->setIcon(recordingIcon());
    ASSERT_TRUE(waitForPanel());
    EXPECT_EQ(panel->itemProperty("Id"), "nulo");
    EXPECT_EQ(panel->itemProperty("Status"), "Active");
    EXPECT_EQ(panel->itemProperty("ItemIsMenu"), true);
    EXPECT_EQ(panel->itemProperty("Menu").value<QDBusObjectPath>().path(), "/MenuBar");
    EXPECT_EQ(panel->itemProperty("IconAccessibleDesc"), "Nulo");
    EXPECT_EQ(panel->itemProperty("IconName"), "org.nulo.Nulo-recording-symbolic");
    EXPECT_TRUE(QFileInfo::exists(panel->itemProperty("IconThemePath").toString() +
                                  "/hicolor/symbolic/apps/org.nulo.Nulo-recording-symbolic.svg"));
    const auto argument = panel->itemProperty("IconPixmap").value<QDBusArgument>();
    EXPECT_EQ(argument.currentSignature(), "a(iiay)");
    QList<int> widths;
    QByteArray largest;
    argument.beginArray();
    while (!argument.atEnd()) {
        int width = 0;
        int height = 0;
        argument.beginStructure();
        argument >> width >> height >> largest;
        argument.endStructure();
        EXPECT_EQ(largest.size(), width * height * 4);
        widths.append(width);
    }
    argument.endArray();
    EXPECT_EQ(widths, QList<int>({16, 18, 22, 24, 32, 36, 44, 48, 64, 96, 128}));
    EXPECT_EQ(largest.mid((64 * 128 + 64) * 4, 4), QByteArray("\xff\xff\x3b\x30"));

    SignalCounter icons("/StatusNotifierItem", "NewIcon");
    SignalCounter states("/StatusNotifierItem", "NewStatus");
    item->setIcon(warningIcon());
    EXPECT_TRUE(icons.came());
    EXPECT_TRUE(states.came());
    EXPECT_EQ(panel->itemProperty("Status"), "NeedsAttention");
    EXPECT_EQ(panel->itemProperty("AttentionIconName"), "org.nulo.Nulo-warning-symbolic");
    EXPECT_EQ(panel->itemProperty("AttentionAccessibleDesc"), "Nulo - Accessibilite requise");
    EXPECT_EQ(panel->itemProperty("AttentionIconPixmap").value<QDBusArgument>().currentSignature(),
              "a(iiay)");
    EXPECT_EQ(panel->itemProperty("ToolTip").value<QDBusArgument>().currentSignature(),
              "(sa(iiay)ss)");
}

// An item that stays away after the panel crashed, came late, or has a watcher without a host.
TEST_F(StatusNotifierItemTest, comesBackWithThePanel) {
    item->setMenu({{Kind::action, "a", [] {}}});
    ASSERT_TRUE(waitForPanel());
    const QString name = panel->items()[0];
    for (int i = 0; i < 3; ++i) {
        panel.reset();
        EXPECT_TRUE(waitUntilAnnounced(false));
        panel.emplace(testBus().address());
        ASSERT_TRUE(waitForPanel());
        EXPECT_EQ(panel->items(), QStringList(name));
        EXPECT_NE(panel->row("a").id, -1);
    }
    EXPECT_THAT(shownChanges, ElementsAre(true, false, true, false, true, false, true));

    panel.reset();
    EXPECT_TRUE(waitUntilAnnounced(false));
    panel.emplace(testBus().address(), Panel::Host::none);
    EXPECT_TRUE(processUntil([&] { return panel->hostQuestions > 0; }));
    EXPECT_NE(panel->row("a").id, -1);  // by then the item has the answer
    EXPECT_FALSE(item->isShown());
    panel->hostAppears();
    EXPECT_TRUE(waitForPanel());
}

// A start or a life without a bus that crashes, blocks, or never says that nothing is shown.
TEST_F(StatusNotifierItemTest, doesWithoutABus) {
    item->setMenu({{Kind::action, "a", [] {}}});
    ASSERT_TRUE(waitForPanel());
    testBus().stop();
    EXPECT_TRUE(waitUntilAnnounced(false));
    item->setIcon(idleIcon());
    item->setMenu({});

    panel.reset();
    shownChanges.clear();
    item = makeStatusNotifierItem();
    item->onShownChanged = [this] { shownChanges.push_back(item->isShown()); };
    item->setIcon(idleIcon());
    item->setMenu({{Kind::action, "a", [] {}}});
    EXPECT_TRUE(processUntil([&] { return !shownChanges.empty(); }));
    EXPECT_THAT(shownChanges, ElementsAre(false));
}

}  // namespace
}  // namespace nulo
