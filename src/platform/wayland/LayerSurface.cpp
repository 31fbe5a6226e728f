#include "platform/wayland/LayerSurface.h"

#include <linux/input-event-codes.h>

#include <algorithm>
#include <utility>

#include "platform/wayland/ShmPicture.h"
#include "platform/wayland/WaylandConnection.h"

namespace nulo {
namespace {

/// One is shown, one is next; a compositor that keeps more gets no further picture for the time.
constexpr std::size_t mostPictures = 3;

constexpr std::uint32_t topLeft =
    ZWLR_LAYER_SURFACE_V1_ANCHOR_TOP | ZWLR_LAYER_SURFACE_V1_ANCHOR_LEFT;
constexpr std::uint32_t allSides =
    topLeft | ZWLR_LAYER_SURFACE_V1_ANCHOR_BOTTOM | ZWLR_LAYER_SURFACE_V1_ANCHOR_RIGHT;

Wayland<zwlr_layer_surface_v1> makeLayer(LayerShell& shell, wl_surface* surface) {
    return Wayland<zwlr_layer_surface_v1>(zwlr_layer_shell_v1_get_layer_surface(
        shell.shell(), surface, nullptr, ZWLR_LAYER_SHELL_V1_LAYER_OVERLAY, "nulo"));
}

LayerSurface& self(void* data) {
    return *static_cast<LayerSurface*>(data);
}

}  // namespace

LayerShell::LayerShell(WaylandConnection& connection)
    : m_connection(connection),
      m_compositor(connection.bind<wl_compositor>(wl_compositor_interface, 3, 4)),
      m_shm(connection.bind<wl_shm>(wl_shm_interface, 1, 1)),
      m_shell(connection.bind<zwlr_layer_shell_v1>(zwlr_layer_shell_v1_interface, 3, 3)) {
    for (Wayland<wl_output>& output : connection.bindAll<wl_output>(wl_output_interface, 2, 2)) {
        m_outputs.push_back(std::make_unique<Output>(Output{std::move(output)}));
        static const wl_output_listener listener{
            .geometry = ignored<void*, wl_output*, std::int32_t, std::int32_t, std::int32_t,
                                std::int32_t, std::int32_t, const char*, const char*, std::int32_t>,
            .mode =
                ignored<void*, wl_output*, std::uint32_t, std::int32_t, std::int32_t, std::int32_t>,
            .done = ignored<void*, wl_output*>,
            .scale = [](void* data, wl_output*,
                        std::int32_t scale) { static_cast<Output*>(data)->scale = scale; },
            .name = ignored<void*, wl_output*, const char*>,
            .description = ignored<void*, wl_output*, const char*>};
        wl_output_add_listener(m_outputs.back()->output.get(), &listener, m_outputs.back().get());
    }
}

LayerShell::~LayerShell() = default;

QSize LayerShell::usableSize() {
    if (!isOffered())
        return {};
    // Nothing is shown: the compositor only says how large a surface on all sides would be.
    const Wayland<wl_surface> surface(wl_compositor_create_surface(m_compositor.get()));
    const Wayland<zwlr_layer_surface_v1> layer = makeLayer(*this, surface.get());
    QSize size;
    static const zwlr_layer_surface_v1_listener listener{
        .configure =
            [](void* data, zwlr_layer_surface_v1*, std::uint32_t, std::uint32_t width,
               std::uint32_t height) {
                *static_cast<QSize*>(data) = QSize(static_cast<int>(std::min(width, 1u << 16)),
                                                   static_cast<int>(std::min(height, 1u << 16)));
            },
        .closed = ignored<void*, zwlr_layer_surface_v1*>};
    zwlr_layer_surface_v1_add_listener(layer.get(), &listener, &size);
    zwlr_layer_surface_v1_set_anchor(layer.get(), allSides);
    wl_surface_commit(surface.get());
    m_connection.finish();
    return size;
}

int LayerShell::scale() const {
    int largest = 1;
    for (const auto& output : m_outputs)
        largest = std::max(largest, output->scale);
    return std::min(largest, 8);
}

LayerSurface::LayerSurface(LayerShell& shell, OnClick onClick)
    : m_shell(shell),
      m_onClick(std::move(onClick)),
      m_surface(wl_compositor_create_surface(shell.compositor())),
      m_layer(makeLayer(shell, m_surface.get())) {
    static const zwlr_layer_surface_v1_listener listener{
        .configure =
            [](void* data, zwlr_layer_surface_v1* layer, std::uint32_t serial, std::uint32_t,
               std::uint32_t) {
                zwlr_layer_surface_v1_ack_configure(layer, serial);
                self(data).m_isConfigured = true;
                self(data).commit();
            },
        .closed = [](void* data,
                     zwlr_layer_surface_v1*) {  // with its output; a later panel has another
            self(data).m_isConfigured = false;
            self(data).m_isWaiting = false;
            self(data).m_layer.reset();
            self(data).m_surface.reset();
        }};
    zwlr_layer_surface_v1_add_listener(m_layer.get(), &listener, this);
    zwlr_layer_surface_v1_set_anchor(m_layer.get(), topLeft);
    listenToPointer();
}

LayerSurface::~LayerSurface() = default;

void LayerSurface::show(Picture picture) {
    if (!m_layer)
        return;
    m_picture = std::move(picture);
    m_isWaiting = true;
    if (m_isConfigured)
        return commit();
    if (std::exchange(m_requestedSize, m_picture.frame.size()).isValid())
        return;
    const QRect& frame = m_picture.frame;
    zwlr_layer_surface_v1_set_size(m_layer.get(), static_cast<std::uint32_t>(frame.width()),
                                   static_cast<std::uint32_t>(frame.height()));
    zwlr_layer_surface_v1_set_margin(m_layer.get(), frame.top(), 0, 0, frame.left());
    wl_surface_commit(m_surface.get());
}

void LayerSurface::commit() {
    if (!m_isWaiting || !m_isConfigured || m_picture.image.isNull())
        return;
    ShmPicture* const shared = freePicture(m_picture.image.size());
    if (!shared)
        return;  // until the compositor gives one back
    m_isWaiting = false;
    shared->fill(m_picture.image, m_picture.opacity);
    const QRect& frame = m_picture.frame;
    if (std::exchange(m_requestedSize, frame.size()) != frame.size())
        zwlr_layer_surface_v1_set_size(m_layer.get(), static_cast<std::uint32_t>(frame.width()),
                                       static_cast<std::uint32_t>(frame.height()));
    zwlr_layer_surface_v1_set_margin(m_layer.get(), frame.top(), 0, 0, frame.left());
    const Wayland<wl_region> region(wl_compositor_create_region(m_shell.compositor()));
    const QRect& clickable = m_picture.clickable;
    if (!clickable.isEmpty())
        wl_region_add(region.get(), clickable.x(), clickable.y(), clickable.width(),
                      clickable.height());
    wl_surface_set_input_region(m_surface.get(), region.get());
    wl_surface_set_buffer_scale(m_surface.get(), qRound(m_picture.image.devicePixelRatio()));
    wl_surface_attach(m_surface.get(), shared->buffer(), 0, 0);
    wl_surface_damage(m_surface.get(), 0, 0, frame.width(), frame.height());
    wl_surface_commit(m_surface.get());
}

ShmPicture* LayerSurface::freePicture(QSize size) {
    std::erase_if(m_pictures, [size](const auto& picture) {
        return !picture->isBusy() && picture->size() != size;
    });
    for (const auto& picture : m_pictures)
        if (!picture->isBusy())
            return picture.get();
    if (m_pictures.size() == mostPictures)
        return nullptr;
    auto made = std::make_unique<ShmPicture>(m_shell.shm(), size, [this] { commit(); });
    if (!made->isValid())
        return nullptr;
    m_pictures.push_back(std::move(made));
    return m_pictures.back().get();
}

void LayerSurface::listenToPointer() {
    if (!m_shell.connection().seatHas(WL_SEAT_CAPABILITY_POINTER))
        return;
    m_pointer.reset(wl_seat_get_pointer(m_shell.connection().seat()));
    static const wl_pointer_listener listener{
        .enter =
            [](void* data, wl_pointer*, std::uint32_t, wl_surface*, wl_fixed_t x, wl_fixed_t y) {
                self(data).m_pointerPosition = {wl_fixed_to_double(x), wl_fixed_to_double(y)};
            },
        .leave = [](void* data, wl_pointer*, std::uint32_t,
                    wl_surface*) { self(data).m_isPressed = false; },
        .motion =
            [](void* data, wl_pointer*, std::uint32_t, wl_fixed_t x, wl_fixed_t y) {
                self(data).m_pointerPosition = {wl_fixed_to_double(x), wl_fixed_to_double(y)};
                if (self(data).m_isPressed)
                    self(data).m_onClick(Click::move, self(data).m_pointerPosition);
            },
        .button =
            [](void* data, wl_pointer*, std::uint32_t, std::uint32_t, std::uint32_t button,
               std::uint32_t state) {
                if (button != BTN_LEFT)
                    return;
                self(data).m_isPressed = state == WL_POINTER_BUTTON_STATE_PRESSED;
                self(data).m_onClick(self(data).m_isPressed ? Click::press : Click::release,
                                     self(data).m_pointerPosition);
            },
        .axis = ignored<void*, wl_pointer*, std::uint32_t, std::uint32_t, wl_fixed_t>,
        .frame = ignored<void*, wl_pointer*>,
        .axis_source = ignored<void*, wl_pointer*, std::uint32_t>,
        .axis_stop = ignored<void*, wl_pointer*, std::uint32_t, std::uint32_t>,
        .axis_discrete = ignored<void*, wl_pointer*, std::uint32_t, std::int32_t>};
    wl_pointer_add_listener(m_pointer.get(), &listener, this);
}

}  // namespace nulo
