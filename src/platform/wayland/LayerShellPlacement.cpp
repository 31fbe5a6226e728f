#include <QCoreApplication>
#include <QEvent>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QScreen>
#include <QTimer>
#include <QWidget>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <utility>

#include "base/Lifetime.h"
#include "desktop/OverlayPlacement.h"
#include "platform/WaylandBackends.h"
#include "platform/wayland/LayerSurface.h"
#include "platform/wayland/WaylandSession.h"

namespace nulo {
namespace {

using namespace std::chrono_literals;

constexpr auto longestWaitForFrame = 200ms;

/// A panel that the toolkit draws and does not show: what it looks like goes to a surface of the
/// compositor's, and the clicks there come back. Goes with its panel.
class PanelPicture final : public QObject {
  public:
    PanelPicture(QWidget& panel, std::shared_ptr<WaylandSession> session, MainQueue& mainQueue,
                 bool takesClicks)
        : QObject(&panel),
          m_panel(panel),
          m_session(std::move(session)),
          m_mainQueue(mainQueue),
          m_takesClicks(takesClicks) {
        panel.installEventFilter(this);
        m_due.setSingleShot(true);
        QObject::connect(&m_due, &QTimer::timeout, this, [this] { send(); });
    }

    ~PanelPicture() override {
        m_session->post([id = id()](const Result<WaylandDesk*>& desk) {
            if (desk)
                desk.value()->overlays.erase(id);
        });
    }

    void place(const QRect& frame, int margin) {
        m_frame = frame;
        m_margin = margin;
        m_panel.setGeometry(QRect(QPoint(), frame.size()));
        m_due.start();
    }

    void setOpacity(double opacity) {
        m_opacity = opacity;
        m_due.start();
    }

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::ChildAdded && watched == &m_panel)
            static_cast<QChildEvent*>(event)->child()->installEventFilter(this);
        if (event->type() == QEvent::Paint && !m_isDrawing)
            m_due.start();
        return false;
    }

  private:
    /// What the thread shows next. It may be busy: only the newest picture is kept for it.
    struct Next {
        std::mutex mutex;
        LayerSurface::Picture picture;
        bool isTaken = true;
        std::atomic<int> scale = 1;
    };

    const void* id() const { return this; }

    void send() {
        if (!m_panel.isVisible() || m_frame.isEmpty())
            return;
        QImage image(m_frame.size() * m_next->scale, QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(m_next->scale);
        image.fill(Qt::transparent);
        m_isDrawing = true;
        m_panel.render(&image, {}, {}, QWidget::DrawChildren);
        m_isDrawing = false;
        const QRect inside = QRect(QPoint(), m_frame.size())
                                 .marginsRemoved({m_margin, m_margin, m_margin, m_margin});
        const std::lock_guard lock(m_next->mutex);
        m_next->picture = {std::move(image), m_frame, m_takesClicks ? inside : QRect(), m_opacity};
        if (!std::exchange(m_next->isTaken, false))
            return;
        auto clicked = [&queue = m_mainQueue,
                        onMain = m_lifetime.guard([this](LayerSurface::Click kind, QPointF at) {
                            click(kind, at);
                        })](LayerSurface::Click kind, QPointF at) {
            queue.async([onMain, kind, at]() mutable { onMain(kind, at); });
        };
        m_session->post([id = id(), next = m_next,
                         clicked = std::move(clicked)](const Result<WaylandDesk*>& desk) {
            LayerSurface::Picture picture;
            {
                const std::lock_guard taking(next->mutex);
                picture = std::move(next->picture);
                next->isTaken = true;
            }
            if (!desk || !desk.value()->layers.isOffered())
                return;
            next->scale = desk.value()->layers.scale();
            auto& surface = desk.value()->overlays[id];
            if (!surface)
                surface = std::make_unique<LayerSurface>(desk.value()->layers, clicked);
            surface->show(std::move(picture));
        });
    }

    void click(LayerSurface::Click kind, QPointF at) {
        const QEvent::Type types[] = {QEvent::MouseButtonPress, QEvent::MouseMove,
                                      QEvent::MouseButtonRelease};
        const auto held = kind == LayerSurface::Click::release ? Qt::NoButton : Qt::LeftButton;
        QMouseEvent event(types[static_cast<int>(kind)], at, m_frame.topLeft() + at,
                          kind == LayerSurface::Click::move ? Qt::NoButton : Qt::LeftButton, held,
                          Qt::NoModifier);
        QCoreApplication::sendEvent(&m_panel, &event);
    }

    QWidget& m_panel;
    const std::shared_ptr<WaylandSession> m_session;
    MainQueue& m_mainQueue;
    const bool m_takesClicks;
    const std::shared_ptr<Next> m_next = std::make_shared<Next>();
    QRect m_frame;
    int m_margin = 0;
    double m_opacity = 1;
    bool m_isDrawing = false;
    QTimer m_due;
    Lifetime m_lifetime;
};

class LayerShellPlacement final : public OverlayPlacement {
  public:
    LayerShellPlacement(std::shared_ptr<WaylandSession> session, MainQueue& mainQueue,
                        bool takesClicks)
        : m_session(std::move(session)), m_mainQueue(mainQueue), m_takesClicks(takesClicks) {}

    QRect visibleFrame() override {
        const auto answer = std::make_shared<std::promise<QSize>>();
        std::future<QSize> size = answer->get_future();
        m_session->post([answer](const Result<WaylandDesk*>& desk) {
            answer->set_value(desk ? desk.value()->layers.usableSize() : QSize());
        });
        if (size.wait_for(longestWaitForFrame) == std::future_status::ready)
            if (const QSize usable = size.get(); !usable.isEmpty())
                m_usable = usable;
        if (m_usable.isEmpty() && QGuiApplication::primaryScreen())
            return {{}, QGuiApplication::primaryScreen()->availableSize()};
        return {{}, m_usable};
    }

    bool isComposited() override { return true; }

    void prepare(QWidget& window) override {
        window.setAttribute(Qt::WA_DontShowOnScreen);
        window.setWindowFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowDoesNotAcceptFocus);
        new PanelPicture(window, m_session, m_mainQueue, m_takesClicks);
    }

    void place(QWidget& window, const QRect& panel, int margin) override {
        if (PanelPicture* const picture = pictureOf(window))
            picture->place(panel.marginsAdded({margin, margin, margin, margin}), margin);
    }

    void setOpacity(QWidget& window, double opacity) override {
        if (PanelPicture* const picture = pictureOf(window))
            picture->setOpacity(opacity);
    }

  private:
    static PanelPicture* pictureOf(QWidget& window) {
        for (QObject* child : window.children())
            if (auto* const picture = dynamic_cast<PanelPicture*>(child))
                return picture;
        return nullptr;
    }

    const std::shared_ptr<WaylandSession> m_session;
    MainQueue& m_mainQueue;
    const bool m_takesClicks;
    QSize m_usable;  // as last told
};

}  // namespace

std::unique_ptr<OverlayPlacement> makeLayerShellPlacement(std::shared_ptr<WaylandSession> session,
                                                          MainQueue& mainQueue, bool takesClicks) {
    return std::make_unique<LayerShellPlacement>(std::move(session), mainQueue, takesClicks);
}

}  // namespace nulo
