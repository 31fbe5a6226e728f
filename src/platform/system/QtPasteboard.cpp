#include <QClipboard>
#include <QGuiApplication>
#include <QString>

#include "platform/Backends.h"

namespace nulo {
namespace {

class QtPasteboard final : public Pasteboard {
  public:
    void setString(std::string_view text) override {
        const QString content = QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
        QClipboard* clipboard = QGuiApplication::clipboard();
        clipboard->setText(content, QClipboard::Clipboard);
        // Some terminals paste only the primary selection.
        if (clipboard->supportsSelection())
            clipboard->setText(content, QClipboard::Selection);
    }
};

}  // namespace

std::unique_ptr<Pasteboard> makeQtPasteboard() {
    return std::make_unique<QtPasteboard>();
}

}  // namespace nulo
