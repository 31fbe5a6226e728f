#include <QAbstractNativeEventFilter>
#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <QString>
#include <memory>

#include "platform/Backends.h"
#include "platform/x11/Xcb.h"

namespace nulo {
namespace {

constexpr const char* secrecyFormat = "x-kde-passwordManagerHint";

using Listener = std::shared_ptr<const std::function<void()>>;

/// Plain text that tells when it is asked for. The clipboard owns it, longer than there is anybody
/// to tell.
class WatchedText final : public QMimeData {
  public:
    WatchedText(const QString& text, bool isPrivate,
                std::weak_ptr<const std::function<void()>> onRead)
        : m_onRead(std::move(onRead)) {
        setText(text);
        if (isPrivate)
            setData(secrecyFormat, "secret");
    }

  protected:
    QVariant retrieveData(const QString& format, QMetaType type) const override {
        if (format != secrecyFormat)
            if (const Listener listener = m_onRead.lock())
                (*listener)();
        return QMimeData::retrieveData(format, type);
    }

  private:
    const std::weak_ptr<const std::function<void()>> m_onRead;
};

/// Keeps which window's question for a selection is being answered, of which the toolkit does not
/// tell.
class SelectionRequests final : public QAbstractNativeEventFilter {
  public:
    SelectionRequests() { QCoreApplication::instance()->installNativeEventFilter(this); }

    /// Nobody in particular when the toolkit answers itself.
    PasteboardReader reader() const {
        const auto* const native = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
        if (!native || m_requestor == XCB_NONE)
            return {};
        xcb_connection_t* const server = native->connection();
        // The names of all that belongs to one client begin with the same bits.
        const std::uint32_t clientBits = ~xcb_get_setup(server)->resource_id_mask;
        const auto focus = NULO_XCB(xcb_get_input_focus, server);
        const std::uint32_t client = m_requestor & clientBits;
        return {client, focus && (focus->focus & clientBits) == client};
    }

  private:
    bool nativeEventFilter(const QByteArray& type, void* message, qintptr*) override {
        if (type == "xcb_generic_event_t") {
            const auto& event = *static_cast<const xcb_generic_event_t*>(message);
            m_requestor =
                typeOf(event) == XCB_SELECTION_REQUEST
                    ? reinterpret_cast<const xcb_selection_request_event_t&>(event).requestor
                    : XCB_NONE;
        }
        return false;
    }

    xcb_window_t m_requestor = XCB_NONE;
};

class X11Pasteboard final : public Pasteboard {
  public:
    explicit X11Pasteboard(const QtPasteboardOptions& options) : m_options(options) {}

    void setString(std::string_view text) override {
        const QString content = QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
        const auto watched = [&] {
            return new WatchedText(content, m_options.isPrivate, m_listener);
        };
        QClipboard* clipboard = QGuiApplication::clipboard();
        clipboard->setMimeData(watched(), QClipboard::Clipboard);
        // Some terminals paste only the primary selection.
        if (clipboard->supportsSelection())
            clipboard->setMimeData(watched(), QClipboard::Selection);
    }

    bool holdsText() const override {
        const QClipboard* clipboard = QGuiApplication::clipboard();
        return clipboard->ownsClipboard() &&
               (!clipboard->supportsSelection() || clipboard->ownsSelection());
    }

  private:
    const QtPasteboardOptions m_options;
    const SelectionRequests m_requests;
    const Listener m_listener = std::make_shared<const std::function<void()>>([this] {
        if (const auto read = onRead)
            read(m_options.isBridged ? PasteboardReader{} : m_requests.reader());
    });
};

}  // namespace

std::unique_ptr<Pasteboard> makeQtPasteboard(const QtPasteboardOptions& options) {
    return std::make_unique<X11Pasteboard>(options);
}

}  // namespace nulo
