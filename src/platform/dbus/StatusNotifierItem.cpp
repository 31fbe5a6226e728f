#include <unistd.h>

#include <QCoreApplication>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QDir>
#include <QFileInfo>
#include <QTimer>
#include <QtEndian>
#include <limits>
#include <optional>
#include <utility>

#include "platform/Backends.h"
#include "platform/dbus/DBusMenu.h"

namespace nulo {
namespace {

/// (iiay): ARGB, 32 bits a pixel, most significant byte first.
struct IconPixmap {
    int width = 0;
    int height = 0;
    QByteArray bytes;
};
/// (sa(iiay)ss)
struct ToolTip {
    QString iconName;
    QList<IconPixmap> pixmaps;
    QString title;
    QString text;
};

QDBusArgument& operator<<(QDBusArgument& to, const IconPixmap& from) {
    to.beginStructure();
    to << from.width << from.height << from.bytes;
    to.endStructure();
    return to;
}
const QDBusArgument& operator>>(const QDBusArgument& from, IconPixmap& to) {
    from.beginStructure();
    from >> to.width >> to.height >> to.bytes;
    from.endStructure();
    return from;
}
QDBusArgument& operator<<(QDBusArgument& to, const ToolTip& from) {
    to.beginStructure();
    to << from.iconName << from.pixmaps << from.title << from.text;
    to.endStructure();
    return to;
}
const QDBusArgument& operator>>(const QDBusArgument& from, ToolTip& to) {
    from.beginStructure();
    from >> to.iconName >> to.pixmaps >> to.title >> to.text;
    from.endStructure();
    return from;
}

const QString watcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString watcherPath = QStringLiteral("/StatusNotifierWatcher");
const QString menuPath = QStringLiteral("/MenuBar");
/// A watcher that hangs may still answer, and its end counts as an answer. Taking it for none would
/// have the fallback made, whose toolkit asks that watcher too and waits: 25 seconds without us.
constexpr int noTimeout = std::numeric_limits<int>::max();

// The widths that panels of common sizes ask for, at one and at two device pixels a point.
constexpr int pixmapWidths[] = {16, 18, 22, 24, 32, 36, 44, 48, 64, 96, 128};

const char introspection[] = R"xml(<interface name="org.kde.StatusNotifierItem">
<property name="Id" type="s" access="read"/>
<property name="Category" type="s" access="read"/>
<property name="Title" type="s" access="read"/>
<property name="Status" type="s" access="read"/>
<property name="WindowId" type="i" access="read"/>
<property name="IconThemePath" type="s" access="read"/>
<property name="IconName" type="s" access="read"/>
<property name="IconPixmap" type="a(iiay)" access="read"/>
<property name="IconAccessibleDesc" type="s" access="read"/>
<property name="OverlayIconName" type="s" access="read"/>
<property name="OverlayIconPixmap" type="a(iiay)" access="read"/>
<property name="AttentionIconName" type="s" access="read"/>
<property name="AttentionIconPixmap" type="a(iiay)" access="read"/>
<property name="AttentionAccessibleDesc" type="s" access="read"/>
<property name="AttentionMovieName" type="s" access="read"/>
<property name="ToolTip" type="(sa(iiay)ss)" access="read"/>
<property name="ItemIsMenu" type="b" access="read"/>
<property name="Menu" type="o" access="read"/>
<signal name="NewTitle"/>
<signal name="NewIcon"/>
<signal name="NewAttentionIcon"/>
<signal name="NewOverlayIcon"/>
<signal name="NewToolTip"/>
<signal name="NewStatus"><arg type="s"/></signal>
</interface>
)xml";

/// The folder of icon themes that is installed beside the program, if the icon is in there: a panel
/// that looked for a name in vain would show nothing, or something else.
QString themeFolderOf(const QString& icon) {
    const QString folder =
        QDir::cleanPath(QCoreApplication::applicationDirPath() + "/../share/icons");
    const QString file = folder + "/hicolor/symbolic/apps/" + icon + ".svg";
    return !icon.isEmpty() && QFileInfo::exists(file) ? folder : QString();
}

IconPixmap pixmapOf(const IconPixels& pixels) {
    IconPixmap pixmap{pixels.width, pixels.width, {}};
    const auto count = static_cast<qsizetype>(pixels.argb.size());
    pixmap.bytes.resize(count * qsizetype{sizeof(std::uint32_t)});
    qToBigEndian<std::uint32_t>(pixels.argb.data(), count, pixmap.bytes.data());
    return pixmap;
}

/// What a host reads of the item. It has no methods: the item is its menu, and a host that calls
/// Activate all the same opens the menu on the error.
class ItemObject final : public BusObject {
  public:
    explicit ItemObject(const QDBusConnection& connection)
        : BusObject(connection, "/StatusNotifierItem", "org.kde.StatusNotifierItem") {
        qDBusRegisterMetaType<IconPixmap>();
        qDBusRegisterMetaType<QList<IconPixmap>>();
        qDBusRegisterMetaType<ToolTip>();
    }

    void setIcon(const StatusIcon& icon) {
        m_draw = icon.draw;
        m_name = QString::fromStdString(icon.symbolicName);
        m_pixmaps.clear();
        m_description = QString::fromStdString(icon.description);
        m_detail = QString::fromStdString(icon.detail).toHtmlEscaped();  // a tooltip is markup
        emitSignal("NewIcon");
        emitSignal("NewAttentionIcon");
        emitSignal("NewToolTip");
        const QString status = icon.needsAttention ? needsAttentionStatus : "Active";
        if (std::exchange(m_status, status) != status)
            emitSignal("NewStatus", {status});
    }

  protected:
    QVariantMap properties() const override {
        const QVariant pixmaps = QVariant::fromValue(drawn());
        const QVariant none = QVariant::fromValue(QList<IconPixmap>());
        const bool needsAttention = m_status == needsAttentionStatus;
        const QString themeFolder = themeFolderOf(m_name);
        const QString name = themeFolder.isEmpty() ? QString() : m_name;
        return {{"Id", "nulo"},
                {"Category", "ApplicationStatus"},
                {"Title", "Nulo"},
                {"Status", m_status},
                {"WindowId", 0},
                {"IconThemePath", themeFolder},
                {"IconName", name},
                {"IconPixmap", pixmaps},
                {"IconAccessibleDesc", m_description},
                {"OverlayIconName", ""},
                {"OverlayIconPixmap", none},
                {"AttentionIconName", needsAttention ? name : QString()},
                {"AttentionIconPixmap", needsAttention ? pixmaps : none},
                {"AttentionAccessibleDesc", m_description},
                {"AttentionMovieName", ""},
                {"ToolTip", QVariant::fromValue(ToolTip{{}, {}, m_description, m_detail})},
                {"ItemIsMenu", true},
                {"Menu", QVariant::fromValue(QDBusObjectPath(menuPath))}};
    }
    QDBusMessage answer(const QDBusMessage&) override { return {}; }
    QString introspect(const QString&) const override { return introspection; }

  private:
    static constexpr const char* needsAttentionStatus = "NeedsAttention";

    /// Draws the icon when a host asks for it, and not when it is set, which is at the start of a
    /// dictation.
    const QList<IconPixmap>& drawn() const {
        if (m_pixmaps.isEmpty() && m_draw)
            for (const int width : pixmapWidths)
                m_pixmaps.append(pixmapOf(m_draw(width)));
        return m_pixmaps;
    }

    std::function<IconPixels(int)> m_draw;
    mutable QList<IconPixmap> m_pixmaps;
    QString m_name;
    QString m_description;
    QString m_detail;
    QString m_status = "Active";
};

/// A bus connection of its own, since hosts tell items apart by connection.
QDBusConnection connectToSessionBus(const QString& name) {
    return QDBusConnection::connectToBus(QDBusConnection::SessionBus, name);
}

/// Registers the item with the watcher whenever one appears, and knows whether a host shows it.
class StatusNotifierItem final : public StatusItem {
  public:
    explicit StatusNotifierItem(const QString& name)
        : m_name(name), m_connection(connectToSessionBus(name)) {
        QObject::connect(&m_announce, &QTimer::timeout, &m_announce, [this] {
            if (const auto shownChanged = onShownChanged)
                shownChanged();
        });
        m_announce.setSingleShot(true);
        if (!m_connection.isConnected()) {
            setShown(false);
            return;
        }
        m_menu.onAboutToShow = [this] {
            if (const auto aboutToShow = onAboutToShow)
                aboutToShow();
        };
        m_connection.registerService(m_name);
        followHosts();
        QObject::connect(&m_watcher, &QDBusServiceWatcher::serviceOwnerChanged, &m_announce,
                         [this](const QString&, const QString&, const QString& newOwner) {
                             if (newOwner.isEmpty())
                                 setShown(false);
                             else
                                 registerItem();
                         });
        registerItem();
    }
    ~StatusNotifierItem() override { QDBusConnection::disconnectFromBus(m_name); }
    StatusNotifierItem(const StatusNotifierItem&) = delete;
    StatusNotifierItem& operator=(const StatusNotifierItem&) = delete;

    void setIcon(StatusIcon icon) override {
        m_item.setIcon(icon);
        m_menu.setNeedsAttention(icon.needsAttention);
    }
    void setMenu(Menu menu) override { m_menu.setMenu(std::move(menu)); }
    bool isShown() const override { return m_shown.value_or(false); }

  private:
    /// The signals only start a timer, as they can reach nothing but a slot. The last one is the
    /// connection's own: the bus is gone, which no service watcher tells.
    void followHosts() {
        const QString local = QStringLiteral("org.freedesktop.DBus.Local");
        for (const char* signal :
             {"StatusNotifierHostRegistered", "StatusNotifierHostUnregistered"})
            m_connection.connect(watcherService, watcherPath, watcherService, signal, &m_lookAgain,
                                 SLOT(start()));
        m_connection.connect({}, "/org/freedesktop/DBus/Local", local, "Disconnected", &m_lookAgain,
                             SLOT(start()));
        m_lookAgain.setSingleShot(true);
        QObject::connect(&m_lookAgain, &QTimer::timeout, &m_lookAgain, [this] {
            if (m_connection.isConnected())
                findHost();
            else
                setShown(false);
        });
    }

    void registerItem() {
        ask(QDBusMessage::createMethodCall(watcherService, watcherPath, watcherService,
                                           "RegisterStatusNotifierItem")
                << m_name,
            [this](const QDBusMessage& reply) {
                if (reply.type() == QDBusMessage::ReplyMessage)
                    findHost();
                else
                    setShown(false);
            });
    }

    void findHost() {
        ask(QDBusMessage::createMethodCall(watcherService, watcherPath,
                                           "org.freedesktop.DBus.Properties", "Get")
                << watcherService << "IsStatusNotifierHostRegistered",
            [this](const QDBusMessage& reply) {
                const QVariantList values = reply.arguments();
                setShown(reply.type() == QDBusMessage::ReplyMessage && !values.isEmpty() &&
                         values[0].value<QDBusVariant>().variant().toBool());
            });
    }

    /// `handle` gets the reply or the error, unless another question was asked meanwhile.
    template <typename Handle>
    void ask(QDBusMessage question, Handle handle) {
        question.setAutoStartService(false);
        m_pending =
            std::make_unique<QDBusPendingCallWatcher>(m_connection.asyncCall(question, noTimeout));
        QObject::connect(m_pending.get(), &QDBusPendingCallWatcher::finished, &m_announce,
                         [this, handle](QDBusPendingCallWatcher* finished) {
                             const QDBusMessage reply = finished->reply();
                             m_pending.release()->deleteLater();
                             handle(reply);
                         });
    }

    void setShown(bool shown) {
        if (std::exchange(m_shown, shown) != shown)
            m_announce.start(0);
    }

    const QString m_name;
    QDBusConnection m_connection;
    ItemObject m_item{m_connection};
    DBusMenu m_menu{m_connection, menuPath};
    std::optional<bool> m_shown;  // nothing until the watcher has answered
    QTimer m_announce;
    QTimer m_lookAgain;
    QDBusServiceWatcher m_watcher{watcherService, m_connection,
                                  QDBusServiceWatcher::WatchForOwnerChange};
    std::unique_ptr<QDBusPendingCallWatcher> m_pending;
};

}  // namespace

std::unique_ptr<StatusItem> makeStatusNotifierItem() {
    static int made = 0;
    return std::make_unique<StatusNotifierItem>(
        QStringLiteral("org.kde.StatusNotifierItem-%1-%2").arg(getpid()).arg(++made));
}

}  // namespace nulo
