#include "desktop/OverlayPlacement.h"

#include <xcb/shape.h>
#include <xcb/xcb.h>

#include <QGuiApplication>
#include <QWidget>
#include <cstdlib>
#include <string>

#include "platform/Backends.h"
#include "platform/x11/X11MainScreen.h"
#include "platform/x11/Xcb.h"

namespace nulo {
namespace {

/// The toolkit's own, so that what is asked comes in order with what it does; null when it runs on
/// no X server.
xcb_connection_t* toolkitConnection() {
    const auto* const native = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return native ? native->connection() : nullptr;
}

/// The number of the screen in $DISPLAY.
int defaultScreen() {
    char* host = nullptr;
    int display = 0;
    int screen = 0;
    xcb_parse_display(nullptr, &host, &display, &screen);
    std::free(host);
    return screen;
}

class X11OverlayPlacement final : public OverlayPlacement {
  public:
    QRect visibleFrame() override { return visibleFrameOfMainScreen(toolkitConnection()); }

    bool isComposited() override {
        xcb_connection_t* const server = toolkitConnection();
        if (!server)
            return true;
        const std::string name = "_NET_WM_CM_S" + std::to_string(defaultScreen());
        const auto owner = NULO_XCB(xcb_get_selection_owner, server, atomOf(server, name));
        return owner && owner->owner != XCB_NONE;
    }

    void prepare(QWidget& window) override {
        // Unmanaged, a window is on all desktops and the window manager gives it no focus.
        window.setWindowFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                              Qt::WindowDoesNotAcceptFocus | Qt::BypassWindowManagerHint);
    }

    void setOpacity(QWidget& window, double opacity) override {
        if (toolkitConnection())  // elsewhere the toolkit cannot, and says so each time
            window.setWindowOpacity(opacity);
    }

    void place(QWidget& window, const QRect& panel, int margin) override {
        window.setGeometry(panel.marginsAdded({margin, margin, margin, margin}));
        xcb_connection_t* const server = toolkitConnection();
        if (!server || !xcb_get_extension_data(server, &xcb_shape_id)->present)
            return;
        const auto id = static_cast<xcb_window_t>(window.winId());  // makes it, on its screen
        const double scale = window.devicePixelRatioF();
        const auto pixels = [scale](int points) { return qRound(points * scale); };
        const xcb_rectangle_t clickable{static_cast<std::int16_t>(pixels(margin)),
                                        static_cast<std::int16_t>(pixels(margin)),
                                        static_cast<std::uint16_t>(pixels(panel.width())),
                                        static_cast<std::uint16_t>(pixels(panel.height()))};
        xcb_shape_rectangles(server, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT,
                             XCB_CLIP_ORDERING_UNSORTED, id, 0, 0, 1, &clickable);
    }
};

}  // namespace

std::unique_ptr<OverlayPlacement> makeX11OverlayPlacement() {
    return std::make_unique<X11OverlayPlacement>();
}

}  // namespace nulo
