#pragma once

#include <QImage>
#include <QPointF>
#include <QRect>
#include <functional>
#include <memory>
#include <vector>

#include "platform/wayland/Wayland.h"

namespace nulo {

class WaylandConnection;
class ShmPicture;

/// What the compositor offers for surfaces above all windows. The connection's thread; gone before
/// the connection.
class LayerShell {
  public:
    /// Takes from it what it needs, which it may not offer.
    explicit LayerShell(WaylandConnection& connection);
    ~LayerShell();
    LayerShell(const LayerShell&) = delete;
    LayerShell& operator=(const LayerShell&) = delete;

    bool isOffered() const { return m_shell && m_compositor && m_shm; }
    /// What bars leave of the output that the user works on, the origin of a LayerSurface's places
    /// being its corner. Waits ten seconds at most; empty when nothing is told.
    QSize usableSize();
    /// The largest scale of an output: a picture with it is sharp on all of them.
    int scale() const;

    WaylandConnection& connection() { return m_connection; }
    wl_compositor* compositor() { return m_compositor.get(); }
    wl_shm* shm() { return m_shm.get(); }
    zwlr_layer_shell_v1* shell() { return m_shell.get(); }

  private:
    struct Output {
        Wayland<wl_output> output;
        int scale = 1;
    };

    WaylandConnection& m_connection;
    Wayland<wl_compositor> m_compositor;
    Wayland<wl_shm> m_shm;
    Wayland<zwlr_layer_shell_v1> m_shell;
    std::vector<std::unique_ptr<Output>> m_outputs;
};

/// One picture above all windows that never gets the keyboard. The connection's thread; gone before
/// the connection.
class LayerSurface {
  public:
    struct Picture {
        QImage image;        // premultiplied; its device pixel ratio is the buffer's scale
        QRect frame;         // in points, from the corner of the usable part of the output
        QRect clickable;     // within the frame; empty for none
        double opacity = 1;  // 0...1
    };
    /// The pointer with a button down, in points from the surface's corner.
    enum class Click { press, move, release };
    using OnClick = std::function<void(Click, QPointF)>;

    /// The output is the one that the user works on.
    LayerSurface(LayerShell& shell, OnClick onClick);
    ~LayerSurface();
    LayerSurface(const LayerSurface&) = delete;
    LayerSurface& operator=(const LayerSurface&) = delete;

    /// As soon as the compositor is ready for it; a later picture takes the place of one that still
    /// waits for that.
    void show(Picture picture);

  private:
    void commit();
    void listenToPointer();
    ShmPicture* freePicture(QSize size);

    LayerShell& m_shell;
    const OnClick m_onClick;
    Wayland<wl_surface> m_surface;
    Wayland<zwlr_layer_surface_v1> m_layer;
    Wayland<wl_pointer> m_pointer;
    QPointF m_pointerPosition;
    bool m_isPressed = false;
    bool m_isConfigured = false;
    bool m_isWaiting = false;  // m_picture is to be committed
    Picture m_picture;
    QSize m_requestedSize;
    std::vector<std::unique_ptr<ShmPicture>> m_pictures;
};

}  // namespace nulo
