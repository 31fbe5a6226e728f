#pragma once

#include <wayland-client.h>

#include <memory>

#define namespace namespace_  // a parameter's name in this C header
#include <wlr-layer-shell-unstable-v1-client.h>
#undef namespace

#include <fake-input-client.h>
#include <virtual-keyboard-unstable-v1-client.h>
#include <wlr-data-control-unstable-v1-client.h>

namespace nulo {

struct WaylandDestroy {
    void operator()(wl_display* display) const { wl_display_disconnect(display); }
    void operator()(wl_registry* object) const { wl_registry_destroy(object); }
    void operator()(wl_callback* object) const { wl_callback_destroy(object); }
    void operator()(wl_seat* object) const { wl_seat_destroy(object); }
    void operator()(wl_keyboard* object) const { wl_keyboard_destroy(object); }
    void operator()(wl_pointer* object) const { wl_pointer_destroy(object); }
    void operator()(wl_output* object) const { wl_output_destroy(object); }
    void operator()(wl_compositor* object) const { wl_compositor_destroy(object); }
    void operator()(wl_surface* object) const { wl_surface_destroy(object); }
    void operator()(wl_region* object) const { wl_region_destroy(object); }
    void operator()(wl_shm* object) const { wl_shm_destroy(object); }
    void operator()(wl_shm_pool* object) const { wl_shm_pool_destroy(object); }
    void operator()(wl_buffer* object) const { wl_buffer_destroy(object); }
    void operator()(zwlr_data_control_manager_v1* object) const {
        zwlr_data_control_manager_v1_destroy(object);
    }
    void operator()(zwlr_data_control_device_v1* object) const {
        zwlr_data_control_device_v1_destroy(object);
    }
    void operator()(zwlr_data_control_source_v1* object) const {
        zwlr_data_control_source_v1_destroy(object);
    }
    void operator()(zwp_virtual_keyboard_manager_v1* object) const {
        zwp_virtual_keyboard_manager_v1_destroy(object);
    }
    void operator()(zwp_virtual_keyboard_v1* object) const {
        zwp_virtual_keyboard_v1_destroy(object);
    }
    void operator()(org_kde_kwin_fake_input* object) const {
        org_kde_kwin_fake_input_destroy(object);
    }
    void operator()(zwlr_layer_shell_v1* object) const { zwlr_layer_shell_v1_destroy(object); }
    void operator()(zwlr_layer_surface_v1* object) const { zwlr_layer_surface_v1_destroy(object); }
};

/// An object of the compositor's, and the connection itself. It goes before its connection.
template <typename T>
using Wayland = std::unique_ptr<T, WaylandDestroy>;

/// For the events of a listener that nothing is done about.
template <typename... Arguments>
constexpr void (*ignored)(Arguments...) = [](Arguments...) {};

}  // namespace nulo
