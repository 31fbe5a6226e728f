#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <QString>
#include <memory>

#include "platform/Backends.h"

namespace nulo {
namespace {

using Listener = std::shared_ptr<const std::function<void()>>;

/// Plain text that tells when it is asked for. The clipboard owns it, longer than there is anybody
/// to tell.
class WatchedText final : public QMimeData {
  public:
    WatchedText(const QString& text, std::weak_ptr<const std::function<void()>> onRead)
        : m_onRead(std::move(onRead)) {
        setText(text);
    }

  protected:
    QVariant retrieveData(const QString& format, QMetaType type) const override {
        if (const Listener listener = m_onRead.lock())
            (*listener)();
        return QMimeData::retrieveData(format, type);
    }

  private:
    const std::weak_ptr<const std::function<void()>> m_onRead;
};

class QtPasteboard final : public Pasteboard {
  public:
    void setString(std::string_view text) override {
        const QString content = QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
        QClipboard* clipboard = QGuiApplication::clipboard();
        clipboard->setMimeData(new WatchedText(content, m_listener), QClipboard::Clipboard);
        // Some terminals paste only the primary selection.
        if (clipboard->supportsSelection())
            clipboard->setMimeData(new WatchedText(content, m_listener), QClipboard::Selection);
    }

  private:
    const Listener m_listener = std::make_shared<const std::function<void()>>([this] {
        if (const auto read = onRead)
            read();
    });
};

}  // namespace

std::unique_ptr<Pasteboard> makeQtPasteboard() {
    return std::make_unique<QtPasteboard>();
}

}  // namespace nulo
